// A lab in a browser: by plain HTTP what the page answers and whom, and in headless Chromium what is seen of it.
#include <atomic>
#include <csignal>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <httplib.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "fixture.h"
#include "page_browser.h"

namespace {

using namespace e2e;
using httplib::Headers;
using nlohmann::json;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string PAGES_LAB = lab::program("LVT_LAB_PROGRAM", "lvt_lab");

#ifdef LVT_RAPID
const std::vector<std::string> UP = {"up", "ring", "4", "--lab", "ring", "--rapid"};
#else
const std::vector<std::string> UP = {"up", "ring", "4", "--lab", "ring"};
#endif

/// How soon the page shows what happens.
constexpr auto FOLLOWS = 2s;

/// A ring of four and its page.
class page : public testing::Test {
protected:
    void SetUp() override
    {
        lab::run({.argv = {"ip", "link", "set", "lo", "up"}});
        const lab::outcome_t up = lvt_lab(UP);
        ASSERT_EQ(up.exit_code, 0) << up.output;
        open_page();
    }

    void TearDown() override
    {
        lvt_lab({"down", "--lab", "ring"});
        if (program_.running())
            program_.stop();
        std::remove(said_path_.c_str());
    }

    static lab::outcome_t lvt_lab(std::vector<std::string> words, const std::string &input = {})
    {
        words.insert(words.begin(), PAGES_LAB);
        return lab::run({.argv = std::move(words)}, input);
    }

    void open_page(const std::vector<std::string> &options = {})
    {
        char name[] = "/tmp/page.XXXXXX";
        const fd_t out(mkstemp(name));
        said_path_ = name;
        std::vector<std::string> argv = {PAGES_LAB, "page", "--lab", "ring"};
        argv.insert(argv.end(), options.begin(), options.end());
        program_ = lab::start({.argv = argv, .out = out.number(), .err = out.number()});
        ASSERT_TRUE(eventually(
            SOON, [this] { return said(); }, HasSubstr("until Ctrl-C.\n")));
        address_ = said().substr(said().find("http://"));
        address_ = address_.substr(0, address_.find(' '));
        ASSERT_EQ(sscanf(address_.c_str(), "http://127.0.0.1:%d/#", &port_), 1) << said();
        token_ = address_.substr(address_.find('#') + 1);
    }

    /// What the program has printed.
    std::string said() const
    {
        std::ifstream file(said_path_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::string origin() const { return fmt::format("http://127.0.0.1:{}", port_); }
    Headers with_token() const { return {{"X-Lab-Token", token_}}; }
    Headers of_the_page() const { return {{"X-Lab-Token", token_}, {"Origin", origin()}}; }

    httplib::Result get(const std::string &path, const Headers &headers = {}) const
    {
        return httplib::Client("127.0.0.1", port_).Get(path.c_str(), headers);
    }

    httplib::Result post(const std::string &path, const std::string &body, const Headers &headers) const
    {
        return httplib::Client("127.0.0.1", port_).Post(path.c_str(), headers, body, "text/plain");
    }

    lab::process_t program_;
    std::string said_path_, address_, token_;
    int port_ = 0;
};

/// Reads a stream of events until its end, or its owner's.
class stream_t {
public:
    stream_t(int port, const std::string &token, const Headers &headers = {})
        : client_("127.0.0.1", port), thread_([this, token, headers] {
              client_.set_read_timeout(30s);
              const auto result =
                  client_.Get(("/events?token=" + token).c_str(), headers, [this](const char *octets, size_t count) {
                      const std::lock_guard lock(mutex_);
                      text_.append(octets, count);
                      return !stops_;
                  });
              status_ = result ? result->status : -1;
          })
    {
    }

    ~stream_t()
    {
        stops_ = true;
        client_.stop();
        thread_.join();
    }

    std::string text() const
    {
        const std::lock_guard lock(mutex_);
        return text_;
    }

    /// The data of the messages of a kind.
    std::vector<json> all(const std::string &kind) const
    {
        const std::string told = text(), start = "event: " + kind + "\ndata: ";
        std::vector<json> found;
        for (size_t at = 0; (at = told.find(start, at)) != std::string::npos;) {
            at += start.size();
            const size_t end = told.find("\n\n", at);
            if (end == std::string::npos)
                break; // the rest is under way
            found.push_back(json::parse(told.substr(at, end - at)));
        }
        return found;
    }

    /// Whether it has told that a cable is pulled out.
    bool shows_pulled(size_t cable) const
    {
        const std::vector<json> views = all("view");
        return !views.empty() && !views.back().at("cables").at(cable).at("plugged").get<bool>();
    }

    int status() const { return status_; }

private:
    mutable std::mutex mutex_;
    std::string text_;
    std::atomic<bool> stops_ = false;
    std::atomic<int> status_ = 0;
    httplib::Client client_;
    std::thread thread_;
};

// ---- whom it answers -----------------------------------------------------------------------------------

TEST_F(page, answers_only_who_has_its_token_and_its_origin)
{
    const std::string here = fmt::format("127.0.0.1:{}", port_), pull = "pull 1-2";
    struct {
        const char *what;
        httplib::Result answer;
        int status;
    } rows[] = {
        {"the page itself needs nothing", get("/"), 200},
        {"nor do its files", get("/page.js"), 200},
        {"by its other name", get("/", {{"Host", fmt::format("localhost:{}", port_)}}), 200},
        {"a name that leads here", get("/", {{"Host", fmt::format("evil.example:{}", port_)}}), 421},
        {"another port's", get("/", {{"Host", "127.0.0.1"}}), 421},
        {"no file", get("/page.htm"), 404},
        {"a file of the machine", get("/../../../../etc/passwd"), 404},
        {"the same in other letters", get("/%2e%2e/%2e%2e/etc/passwd"), 404},
        {"events without a token", get("/events"), 401},
        {"events with a wrong one", get("/events?token=" + std::string(32, '0')), 401},
        {"events with a part of it", get("/events?token=" + token_.substr(1)), 401},
        {"a layout without a token", get("/layout?top=sw1"), 401},
        {"a layout", get("/layout?top=sw1", with_token()), 200},
        {"a command by GET", get("/act", of_the_page()), 405},
        {"a command without a token", post("/act", pull, {{"Origin", origin()}}), 401},
        {"a command with a token in its path", post("/act?token=" + token_, pull, {{"Origin", origin()}}), 401},
        {"a command of no origin", post("/act", pull, with_token()), 403},
        {"a command of another origin",
         post("/act", pull, {{"X-Lab-Token", token_}, {"Origin", "http://evil.example"}}), 403},
        {"a command of a file", post("/act", pull, {{"X-Lab-Token", token_}, {"Origin", "null"}}), 403},
        {"a command of another port's page",
         post("/act", pull, {{"X-Lab-Token", token_}, {"Origin", "http://127.0.0.1:80"}}), 403},
        {"a file by POST", post("/page.js", "x", of_the_page()), 405},
        {"a long command", post("/act", "pull " + std::string(300, 'x'), of_the_page()), 413},
        {"what the page has no button for", post("/act", "set sw1 bridge.priority=0", of_the_page()), 400},
        {"two lines", post("/act", "pull 1-2\npull 2-3", of_the_page()), 400},
        {"nothing", post("/act", "", of_the_page()), 400},
        {"a cable that is not there", post("/act", "pull 1-3", of_the_page()), 409},
    };
    for (const auto &row : rows) {
        ASSERT_TRUE(row.answer) << row.what;
        EXPECT_EQ(row.answer->status, row.status) << row.what << ": " << row.answer->body;
        EXPECT_FALSE(row.answer->body.empty()) << row.what;
        EXPECT_THAT(row.answer->get_header_value("Content-Security-Policy"), HasSubstr("default-src 'none'"));
        EXPECT_EQ(row.answer->get_header_value("X-Content-Type-Options"), "nosniff") << row.what;
    }
    EXPECT_THAT(std::end(rows)[-1].answer->body, HasSubstr("there is no link \"1-3\""));
    EXPECT_EQ(json::parse(lvt_lab({"show", "-j"}).output).at("cables").at(0).at("plugged"), true)
        << "none of them has changed anything";

    const auto done = post("/act", pull, of_the_page());
    ASSERT_TRUE(done);
    EXPECT_EQ(done->status, 200);
    EXPECT_EQ(json::parse(lvt_lab({"show", "-j"}).output).at("cables").at(0).at("plugged"), false);
}

TEST_F(page, is_reached_by_loopback_only)
{
    std::ifstream sockets("/proc/net/tcp"), sockets_6("/proc/net/tcp6");
    const std::string port = fmt::format(":{:04X} ", port_);
    std::vector<std::string> listens;
    for (std::ifstream *file : {&sockets, &sockets_6})
        for (std::string line; std::getline(*file, line);)
            if (const size_t at = line.find(port); at != std::string::npos && line.find(" 0A ") != std::string::npos)
                listens.push_back(line.substr(at - 8, 8));
    EXPECT_THAT(listens, ElementsAre("0100007F"));
}

TEST_F(page, lays_all_nodes_and_cables_out_with_the_root_on_top)
{
    const json view = json::parse(lvt_lab({"show", "-j"}).output);
    for (const std::string top : {"sw1", "sw3"}) {
        const json layout = json::parse(get("/layout?top=" + top, with_token())->body);
        EXPECT_EQ(layout.at("nodes").size(), view.at("nodes").size());
        EXPECT_EQ(layout.at("cables").size(), view.at("cables").size());
        for (const json &cable : view.at("cables"))
            EXPECT_THAT(layout.at("cables").at(cable.at("name").get<std::string>()).get<std::string>(),
                        testing::StartsWith("M"));
        for (const auto &[name, place] : layout.at("nodes").items())
            if (name != top) {
                EXPECT_GT(place.at("y").get<double>(), layout.at("nodes").at(top).at("y").get<double>()) << name;
            }
    }
    EXPECT_EQ(get("/layout?top=", with_token())->status, 200) << "while there is no root";
}

// ---- what it tells -------------------------------------------------------------------------------------

TEST_F(page, tells_what_was_and_what_happens)
{
    stream_t stream(port_, token_);
    ASSERT_TRUE(eventually(
        SOON, [&] { return stream.all("view"); }, testing::Not(IsEmpty())));
    EXPECT_EQ(stream.all("happened").front().front().at("number"), 1) << "also what was before the page";
    const uint64_t known = stream.all("happened").back().back().at("number");

    ASSERT_EQ(post("/act", "pull 1-2", of_the_page())->status, 200);
    EXPECT_TRUE(eventually(
        FOLLOWS, [&] { return stream.shows_pulled(0); }, true));
    EXPECT_THAT(stream.text(), HasSubstr("the cable sw1:1-sw2:2 is pulled out"));

    // A browser that has lost the stream goes on where it was.
    stream_t again(port_, token_, {{"Last-Event-ID", std::to_string(known)}});
    ASSERT_TRUE(eventually(
        SOON, [&] { return again.all("happened"); }, testing::Not(IsEmpty())));
    EXPECT_EQ(again.all("happened").front().front().at("number"), known + 1);
}

TEST_F(page, lets_no_reader_hold_another_up)
{
    std::vector<std::unique_ptr<stream_t>> streams;
    for (unsigned i = 0; i < 16; i++)
        streams.push_back(std::make_unique<stream_t>(port_, token_));
    for (const auto &stream : streams)
        ASSERT_TRUE(eventually(
            SOON, [&] { return stream->all("view"); }, testing::Not(IsEmpty())));
    EXPECT_EQ(get("/events?token=" + token_)->status, 503);
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(post("/act", "pull 1-2", of_the_page())->status, 200);
    EXPECT_LT(std::chrono::steady_clock::now() - began, 1s);
    EXPECT_TRUE(eventually(
        FOLLOWS, [&] { return streams.back()->shows_pulled(0); }, true));
    streams.clear();
    EXPECT_TRUE(eventually(
        20s, [&] { return stream_t(port_, token_).status(); }, testing::Ne(503)))
        << "the places of readers that are gone are free again";
}

TEST_F(page, ends_with_its_lab)
{
    stream_t stream(port_, token_);
    ASSERT_TRUE(eventually(
        SOON, [&] { return stream.all("view"); }, testing::Not(IsEmpty())));
    ASSERT_EQ(lvt_lab({"down", "--lab", "ring"}).exit_code, 0);
    EXPECT_TRUE(eventually(
        SOON, [&] { return stream.text(); }, HasSubstr("event: ended\n")));
    EXPECT_TRUE(eventually(
        SOON, [&] { return program_.exit_code(); }, std::optional(0)));
    EXPECT_THAT(said(), HasSubstr("\nThe lab ring has ended.\n"));
}

TEST_F(page, has_the_port_that_it_is_told_and_says_when_it_cannot)
{
    program_.signal(SIGINT);
    EXPECT_EQ(program_.wait(), 0);
    open_page({"--port", "8123"});
    EXPECT_EQ(port_, 8123);
    const lab::outcome_t second = lvt_lab({"page", "--port", "8123"});
    EXPECT_EQ(second.exit_code, 1);
    EXPECT_THAT(second.output, HasSubstr("lvt_lab: cannot listen at 127.0.0.1:8123: Address already in use\n"));
    EXPECT_EQ(lvt_lab({"page", "--port", "0"}).exit_code, 2);
    EXPECT_EQ(lvt_lab({"page", "--lab", "none"}).exit_code, 3);
}

// ---- what is seen --------------------------------------------------------------------------------------

/// The same ring at rest, in a browser.
class page_in_browser : public page {
protected:
    void SetUp() override
    {
        page::SetUp();
        try {
            browser_.emplace();
        } catch (const std::runtime_error &reason) {
            GTEST_SKIP() << "cannot run here: no browser: " << reason.what();
        }
        expect_rest();
        browser_->open(address_);
        ASSERT_TRUE(eventually(
            SOON, [this] { return browser_->value_of("document.querySelectorAll('#picture .cable').length"); }, 6));
        ASSERT_TRUE(eventually(
            SOON, [this] { return browser_->value_of("document.getElementById('mood').textContent"); }, "at rest"));
    }

    void TearDown() override
    {
        if (browser_) {
            EXPECT_THAT(browser_->console(), IsEmpty());
        }
        browser_.reset();
        page::TearDown();
    }

    static void expect_rest()
    {
        const lab::outcome_t outcome = lvt_lab({"run", "--lab", "ring", "-"}, "expect rest\n");
        ASSERT_EQ(outcome.exit_code, 0) << outcome.output;
    }

    static json view() { return json::parse(lvt_lab({"show", "-j"}).output); }

    /// All that can be chosen in the picture, with what is told of it; of the cables and nodes that have this class.
    std::map<std::string, std::string> picture(const std::string &of_class = {})
    {
        return browser_->value_of("Object.fromEntries([...document.querySelectorAll('#picture [data-key]" +
                                  (of_class.empty() ? "" : "." + of_class) +
                                  "')].map(it => [it.dataset.key, it.getAttribute('aria-label')]))");
    }

    std::vector<std::string> names(const std::string &of_class)
    {
        std::vector<std::string> found;
        for (const auto &[name, words] : picture(of_class))
            found.push_back(name);
        return found;
    }

    /// Makes the keyboard's keys go to something in the picture.
    void focus(const std::string &key) { browser_->run(fmt::format("drawn.{}.group.focus()", key)); }

    /// What the events tell of now, and what the lab itself does.
    std::pair<json, json> now_twice()
    {
        const json both = browser_->value_of(
            "[viewAfter(events.length), live].map("
            "view => [view.cables.map(cable => cableWords(view, cable)), view.nodes.map(nodeNote)])");
        return {both.at(0), both.at(1)};
    }

    std::optional<browser_t> browser_;
};

constexpr char ENTER[] = "\uE007", ESCAPE[] = "\uE00C", HOME[] = "\uE011", END[] = "\uE010", LEFT[] = "\uE012",
               DOWN[] = "\uE015";

TEST_F(page_in_browser, shows_nodes_and_cables_and_follows_a_click)
{
    const json now = view();
    std::vector<std::string> wanted, cut;
    for (const json &node : now.at("nodes"))
        wanted.push_back("node " + node.at("name").get<std::string>());
    for (const json &cable : now.at("cables")) {
        wanted.push_back("cable " + cable.at("name").get<std::string>());
        if (!cable.at("carries"))
            cut.push_back(wanted.back());
    }
    std::ranges::sort(wanted);
    std::vector<std::string> drawn;
    for (const auto &[key, words] : picture())
        drawn.push_back(key);
    EXPECT_EQ(drawn, wanted);
    EXPECT_EQ(names("root"), std::vector<std::string>{"node sw1"});
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(names("cut"), cut);
    EXPECT_EQ(browser_->value_of("document.querySelectorAll('#picture .end.discarding .bar').length"), 2)
        << "without colour";
    EXPECT_EQ(picture().at("cable sw3:1-sw4:2"),
              "Cable sw3:1 alternate, discards to sw4:2 designated: carries no data. Pull it out");

    browser_->click("[data-key='cable sw1:1-sw2:2'] .hit");
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return names("pulled"); }, ElementsAre("cable sw1:1-sw2:2")));
    EXPECT_EQ(view().at("cables").at(0).at("plugged"), false);
    // The lab pings while it heals.
    EXPECT_TRUE(eventually(
        5s, [this] { return browser_->value_of("document.querySelectorAll('#picture .flow.on').length").get<int>(); },
        Ge(2)));
    EXPECT_EQ(browser_->value_of("getComputedStyle(document.querySelector('#picture .flow.on')).animationName"),
              "flow");
    EXPECT_TRUE(eventually(
        60s, [this] { return names("cut"); }, IsEmpty()));
    EXPECT_EQ(names("carries").size(), 5u);
    // The picture in the documents, made anew.
    if (const char *path = getenv("LVT_PAGE_PICTURE")) {
        browser_->click("[data-key='node sw3']");
        browser_->take_picture(path);
    }
    EXPECT_TRUE(eventually(
        60s, [this] { return browser_->value_of("document.getElementById('mood').textContent"); }, "at rest"));
}

TEST_F(page_in_browser, goes_back_by_the_time_line)
{
    const auto mood = [this] { return browser_->value_of("document.getElementById('mood').textContent"); };
    const auto before = picture();
    browser_->click("[data-key='cable sw1:1-sw2:2'] .hit");
    ASSERT_TRUE(eventually(
        60s, [this] { return names("cut"); }, IsEmpty()));
    ASSERT_TRUE(eventually(60s, mood, "at rest"));
    const auto healed = picture();

    // The command, and the moment before it.
    browser_->click("#before-deed");
    EXPECT_THAT(browser_->value_of("document.getElementById('moment').textContent").get<std::string>(),
                HasSubstr("s: the cable sw1:1-sw2:2 is pulled out"));
    EXPECT_EQ(names("pulled"), std::vector<std::string>{"cable sw1:1-sw2:2"});
    browser_->run("document.getElementById('time').focus()");
    browser_->press(LEFT);
    EXPECT_EQ(picture(), before);
    EXPECT_THAT(mood().get<std::string>(), testing::StartsWith("as it was "));
    browser_->click("[data-key='cable sw2:1-sw3:2'] .hit");
    EXPECT_EQ(browser_->value_of("document.getElementById('notice').textContent"),
              "This is what was. Go to now, and then change it.");
    EXPECT_EQ(view().at("cables").at(1).at("plugged"), true);
    browser_->run("document.getElementById('time').focus()");
    browser_->press(HOME);
    EXPECT_THAT(names("root"), IsEmpty()) << "at the beginning";
    browser_->press(END);
    EXPECT_EQ(picture(), healed);
    EXPECT_EQ(mood(), "at rest");

    // What the events tell of now is what the lab tells, whatever is done.
    for (const char *deed :
         {"kill sw2", "restart sw2", "power sw3 off", "plug 1-2", "power sw3 on", "flap 2-3 2 100ms"}) {
        std::istringstream stream(deed);
        std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
        words.insert(words.end(), {"--lab", "ring", "--now"});
        ASSERT_EQ(lvt_lab(words).exit_code, 0) << deed;
        const uint64_t event = view().at("event");
        EXPECT_TRUE(eventually(
            FOLLOWS, [this] { return browser_->value_of("live.event").get<uint64_t>(); }, Ge(event)));
        EXPECT_TRUE(eventually(
            FOLLOWS,
            [this] {
                const auto [told, is] = now_twice();
                return told == is ? "the same" : told.dump() + "\n" + is.dump();
            },
            "the same"))
            << deed;
    }
}

TEST_F(page_in_browser, draws_the_root_on_top_when_asked_and_tells_of_the_end)
{
    const auto top = [this] {
        return browser_->value_of(
            "live.nodes.map(node => node.name).sort((one, other) => "
            "layout.nodes[one].y - layout.nodes[other].y)[0]");
    };
    const json drawn = browser_->value_of("layout");
    EXPECT_EQ(top(), "sw1");
    EXPECT_EQ(browser_->value_of("document.getElementById('arrange').hidden"), true);
    ASSERT_EQ(lvt_lab({"set", "sw3", "bridge.priority=0"}).exit_code, 0);
    EXPECT_TRUE(eventually(
        60s, [this] { return names("root"); }, ElementsAre("node sw3")));
    EXPECT_EQ(browser_->value_of("layout"), drawn) << "the picture stays as it is";
    browser_->click("#arrange");
    EXPECT_TRUE(eventually(FOLLOWS, top, "sw3"));
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return names("root"); }, ElementsAre("node sw3")));

    ASSERT_EQ(lvt_lab({"down", "--lab", "ring"}).exit_code, 0);
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return browser_->value_of("document.getElementById('mood').textContent"); },
        "the lab has ended"));
    browser_->click("#before-deed");
    EXPECT_THAT(browser_->value_of("document.getElementById('moment').textContent").get<std::string>(),
                HasSubstr("s: set sw3 bridge.priority=0"))
        << "the time line stays";
}

TEST_F(page_in_browser, is_used_by_keyboard_and_in_the_dark)
{
    focus("cables.get('sw1:1-sw2:2')");
    browser_->press(ENTER);
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return names("pulled"); }, ElementsAre("cable sw1:1-sw2:2")));
    browser_->press(ENTER);
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return names("pulled"); }, IsEmpty()));

    focus("nodes.get('sw1')");
    browser_->press(DOWN);
    EXPECT_THAT(browser_->value_of("document.activeElement.dataset.key").get<std::string>(),
                testing::AnyOf(HasSubstr("cable sw"), HasSubstr("cable sw1:6")));
    focus("nodes.get('sw3')");
    browser_->press(" ");
    EXPECT_EQ(browser_->value_of("document.getElementById('details-title').textContent"), "sw3");
    EXPECT_EQ(browser_->value_of("document.querySelectorAll('#ports tbody tr').length"), 3);
    EXPECT_THAT(browser_->value_of("document.getElementById('its-events').textContent").get<std::string>(),
                HasSubstr("sw3:"));
    browser_->click("#deeds button");
    EXPECT_TRUE(eventually(
        FOLLOWS, [this] { return names("mute"); }, ElementsAre("node sw3")));
    EXPECT_THAT(picture().at("node sw3"), HasSubstr("no daemon"));
    browser_->press(ESCAPE);
    EXPECT_EQ(browser_->value_of("document.getElementById('details').hidden"), true);

    std::map<std::string, json> colours;
    for (const std::string scheme : {"light", "dark"}) {
        browser_->prefer("color-scheme", scheme);
        colours[scheme] = browser_->value_of(
            "[document.documentElement, document.querySelector('.node rect:not(.ring)')].map("
            "it => getComputedStyle(it)).map(it => it.backgroundColor + it.fill)");
    }
    EXPECT_NE(colours["light"].at(0), colours["dark"].at(0));
    EXPECT_NE(colours["light"].at(1), colours["dark"].at(1));
    browser_->prefer("reduced-motion", "reduce");
    EXPECT_EQ(browser_->value_of("matchMedia('(prefers-reduced-motion: reduce)').matches"), true);
    browser_->run("document.querySelector('#picture .flow').classList.add('on')");
    EXPECT_EQ(browser_->value_of("getComputedStyle(document.querySelector('#picture .flow.on')).animationName"),
              "none");
}

} // namespace
