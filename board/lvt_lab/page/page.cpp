#include "board/lvt_lab/page/page.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <map>
#include <thread>

#include <fmt/format.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <sys/random.h>

#include "board/lvt_lab/client.h"
#include "board/lvt_lab/page/files.h"
#include "board/lvt_lab/page/layout.h"
#include "board/lvt_lab/page/lookout.h"
#include "tools/ctl/ctl.h"
#include "tools/ctl/output.h"
#include "tools/hex.h"

namespace lvt_lab {

namespace {

using httplib::Request, httplib::Response;
using nlohmann::json;
using answered_t = httplib::Server::HandlerResponse;

constexpr char HERE[] = "127.0.0.1";
constexpr char TOKEN_HEADER[] = "X-Lab-Token"; // which no other site's page can send
constexpr char TEXT[] = "text/plain; charset=utf-8", JSON[] = "application/json";
constexpr size_t COMMAND_MAX = 200;
constexpr int READERS_MAX = 16;
constexpr size_t THREADS = READERS_MAX + 8; // one for each connection, so that nobody holds another up
constexpr std::chrono::seconds SIGN_OF_LIFE(15);

/// What the page does to a lab; for the rest there are commands.
constexpr std::array DEEDS = {"pull", "plug", "kill", "restart", "power"};

std::string random_token()
{
    std::array<uint8_t, 16> octets;
    if (getrandom(octets.data(), octets.size(), 0) != static_cast<ssize_t>(octets.size()))
        throw refused_t("no random numbers are to be had");
    return hex(octets, "");
}

void answer(Response &response, int status, const std::string &text)
{
    response.status = status;
    response.set_content(text + "\n", TEXT);
}

class page_server_t {
public:
    explicit page_server_t(const std::string &lab) : lab_(lab), lookout_(lab, [] { kill(getpid(), SIGTERM); }) {}

    /// Until one of the signals comes.
    void run(const sigset_t &ends, int port)
    {
        // As the library has it, a second program at the same port would share it.
        server_.set_socket_options([](socket_t socket) {
            const int yes = 1;
            setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        });
        port_ = port ? port : server_.bind_to_any_port(HERE);
        if (port_ <= 0 || (port && !server_.bind_to_port(HERE, port)))
            throw refused_t(fmt::format("cannot listen at {}:{}: {}", HERE, port, std::strerror(errno)));
        set_up();
        std::thread thread([this] { server_.listen_after_bind(); });
        fmt::print("The lab {} is shown at http://{}:{}/#{} until Ctrl-C.\n", lab_, HERE, port_, token_);
        flush_output();
        int signal;
        sigwait(&ends, &signal);
        lookout_.stop();
        while (!server_.is_running())
            std::this_thread::yield(); // it would not hear that it is to stop
        server_.stop();
        thread.join();
        if (lookout_.lab_ended())
            fmt::print("The lab {} has ended.\n", lab_);
    }

private:
    void set_up()
    {
        server_.new_task_queue = [] { return new httplib::ThreadPool(THREADS); };
        server_.set_keep_alive_max_count(1); // an idle connection would keep its thread
        server_.set_keep_alive_timeout(1);
        server_.set_payload_max_length(COMMAND_MAX);
        server_.set_default_headers({{"Content-Security-Policy",
                                      "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; "
                                      "connect-src 'self'; base-uri 'none'; form-action 'none'; "
                                      "frame-ancestors 'none'"},
                                     {"X-Content-Type-Options", "nosniff"},
                                     {"Referrer-Policy", "no-referrer"},
                                     {"Cross-Origin-Resource-Policy", "same-origin"},
                                     {"Cache-Control", "no-store"}});
        server_.set_pre_routing_handler([this](const Request &request, Response &response) {
            return admits(request, response) ? answered_t::Unhandled : answered_t::Handled;
        });
        server_.set_error_handler([](const Request &, Response &response) {
            if (response.body.empty())
                answer(response, response.status,
                       response.status == 413 ? fmt::format("a command has at most {} letters", COMMAND_MAX)
                                              : "this is no request that the page makes");
        });
        add_file("/", PAGE_HTML, "text/html; charset=utf-8");
        add_file("/page.css", PAGE_CSS, "text/css; charset=utf-8");
        const char *script = "text/javascript; charset=utf-8";
        add_file("/view.js", VIEW_JS, script);
        add_file("/picture.js", PICTURE_JS, script);
        add_file("/page.js", PAGE_JS, script);
        add_file("/icon.svg", ICON_SVG, "image/svg+xml");
        guarded_["/events"] = guarded_["/layout"] = guarded_["/act"] = true;
        server_.Get("/events", [this](const Request &request, Response &response) { stream(request, response); });
        server_.Get("/layout", [this](const Request &request, Response &response) {
            response.set_content(layout_of(client_t(lab_).view(), request.get_param_value("top")).dump(), JSON);
        });
        server_.Post("/act", [this](const Request &request, Response &response) { act(request.body, response); });
    }

    void add_file(const char *path, const std::string &text, const char *type)
    {
        guarded_[path] = false;
        server_.Get(path, [&text, type](const Request &, Response &response) { response.set_content(text, type); });
    }

    /// Whether a request may be answered; else it is refused here.
    bool admits(const Request &request, Response &response) const
    {
        const std::string host = request.get_header_value("Host");
        const auto refuse = [&](int status, const char *text) {
            answer(response, status, text);
            return false;
        };
        // A name that somebody else lets lead here is none of this page.
        if (host != fmt::format("{}:{}", HERE, port_) && host != fmt::format("localhost:{}", port_))
            return refuse(421, "this is not the host that the page has");
        const auto known = guarded_.find(request.path);
        if (known == guarded_.end())
            return refuse(404, "there is no such thing here");
        const bool changes = known->first == "/act";
        if (request.method != (changes ? "POST" : "GET")) {
            response.set_header("Allow", changes ? "POST" : "GET");
            return refuse(405, "this is not how it is asked for");
        }
        if (changes && request.get_header_value("Origin") != "http://" + host)
            return refuse(403, "this does not come from the lab's page");
        // What opens a stream of events in a browser can send no header.
        const std::string token =
            request.path == "/events" ? request.get_param_value("token") : request.get_header_value(TOKEN_HEADER);
        if (known->second && token != token_)
            return refuse(401, "the token is missing or wrong: open the address that lvt_lab page prints");
        return true;
    }

    void act(const std::string &command, Response &response) const
    {
        if (std::ranges::any_of(command, [](char letter) { return static_cast<unsigned char>(letter) < ' '; }) ||
            std::ranges::find(DEEDS, command.substr(0, command.find(' '))) == DEEDS.end())
            return answer(response, 400, "the page does not do that");
        try {
            const json done = client_t(lab_).ask({{"verb", "act"}, {"command", command}});
            response.set_content(done.dump(), JSON);
        } catch (const untold_t &gone) {
            answer(response, 503, gone.what());
        } catch (const refused_t &refused) {
            answer(response, 409, refused.what());
        }
    }

    void stream(const Request &request, Response &response)
    {
        if (readers_.fetch_add(1) >= READERS_MAX) {
            readers_--;
            return answer(response, 503, "the page is open too often");
        }
        // A browser that has lost the stream says what it had.
        lookout_t::known_t known =
            lookout_.add_reader(std::strtoull(request.get_header_value("Last-Event-ID").c_str(), nullptr, 10));
        response.set_chunked_content_provider(
            "text/event-stream",
            [this, known](size_t, httplib::DataSink &sink) mutable {
                const lookout_t::news_t news = lookout_.wait(known, SIGN_OF_LIFE);
                std::string text;
                if (!news.events.empty())
                    text += fmt::format("id: {}\nevent: happened\ndata: {}\n\n", known.event, news.events);
                if (news.view)
                    text += fmt::format("event: view\ndata: {}\n\n", *news.view);
                if (news.lab_ended)
                    text += "event: ended\ndata: {}\n\n";
                if (text.empty())
                    text = ":\n\n";
                const bool arrived = sink.write(text.data(), text.size());
                if (news.over)
                    sink.done();
                return arrived;
            },
            [this](bool) {
                lookout_.remove_reader();
                readers_--;
            });
    }

    const std::string lab_;
    /// Stands after the # of the page's address, so that it is in no request for it.
    const std::string token_ = random_token();
    int port_ = 0;
    std::map<std::string, bool> guarded_; ///< the paths there are: whether they need the token
    std::atomic<int> readers_ = 0;
    lookout_t lookout_;
    httplib::Server server_;
};

} // namespace

void page(const std::string &lab, uint16_t port)
{
    // Before there are threads, so that all of them leave the signals to who waits for them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    page_server_t(lab).run(ends, port);
}

} // namespace lvt_lab
