#include "page_browser.h"

#include <fstream>
#include <stdexcept>

#include <fmt/format.h>
#include <httplib.h>

#include "board/lab/within.h"

namespace e2e {

using nlohmann::json;
using namespace std::chrono_literals;

namespace {

constexpr int PORT = 9515; // this world's own

std::vector<uint8_t> from_base64(const std::string &text)
{
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::vector<uint8_t> octets;
    unsigned bits = 0, count = 0;
    for (const char letter : text) {
        const size_t value = digits.find(letter);
        if (value == std::string::npos)
            break; // the end's filling
        bits = bits << 6 | static_cast<unsigned>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            octets.push_back(static_cast<uint8_t>(bits >> count));
        }
    }
    return octets;
}

} // namespace

browser_t::browser_t()
{
    if (lab::find_program("chromedriver").empty() || lab::find_program("chromium").empty())
        throw std::runtime_error("the packages chromium and chromium-driver are not installed");
    driver_ = lab::start({.argv = {"chromedriver", fmt::format("--port={}", PORT)}});
    client_ = std::make_unique<httplib::Client>("127.0.0.1", PORT);
    client_->set_read_timeout(30s);
    client_->set_keep_alive(true);
    if (!lab::within(10s, [&] { return static_cast<bool>(client_->Get("/status")); }))
        throw std::runtime_error("chromedriver does not answer");
    // Root's browser has no sandbox; the pages that it opens are the test's.
    const json options = {
        {"args", {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--window-size=1280,860"}}};
    session_ = ask("POST", "/session",
                   {{"capabilities",
                     {{"alwaysMatch",
                       {{"browserName", "chrome"},
                        {"goog:chromeOptions", options},
                        {"goog:loggingPrefs", {{"browser", "ALL"}}}}}}}})
                   .at("sessionId");
}

browser_t::~browser_t()
{
    try {
        ask("DELETE", "");
    } catch (const std::exception &) { // it is gone
    }
}

json browser_t::ask(const std::string &method, const std::string &path, const json &body)
{
    httplib::Request request;
    request.method = method;
    request.path = session_.empty() ? path : "/session/" + session_ + path;
    if (!body.is_null()) {
        request.body = body.dump();
        request.set_header("Content-Type", "application/json");
    }
    const auto answer = client_->send(request);
    if (!answer)
        throw std::runtime_error(fmt::format("the browser does not answer {} {}", method, path));
    const json value = json::parse(answer->body).at("value");
    if (answer->status != 200)
        throw std::runtime_error(value.at("message").get<std::string>());
    return value;
}

void browser_t::open(const std::string &address) { ask("POST", "/url", {{"url", address}}); }

json browser_t::value_of(const std::string &expression)
{
    return ask("POST", "/execute/sync", {{"script", "return " + expression}, {"args", json::array()}});
}

void browser_t::run(const std::string &statements)
{
    ask("POST", "/execute/sync", {{"script", statements}, {"args", json::array()}});
}

void browser_t::click(const std::string &selector)
{
    const json found = ask("POST", "/element", {{"using", "css selector"}, {"value", selector}});
    ask("POST", fmt::format("/element/{}/click", found.begin().value().get<std::string>()), json::object());
}

void browser_t::press(const std::string &key)
{
    json keyboard = {{"type", "key"}, {"id", "keyboard"}};
    for (const char *type : {"keyDown", "keyUp"})
        keyboard["actions"].push_back({{"type", type}, {"value", key}});
    ask("POST", "/actions", {{"actions", json::array({keyboard})}});
}

void browser_t::prefer(const std::string &what, const std::string &value)
{
    const json feature = {{"name", "prefers-" + what}, {"value", value}};
    ask("POST", "/goog/cdp/execute",
        {{"cmd", "Emulation.setEmulatedMedia"}, {"params", {{"features", json::array({feature})}}}});
}

void browser_t::take_picture(const std::string &path)
{
    const std::vector<uint8_t> octets = from_base64(ask("GET", "/screenshot"));
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(octets.data()), static_cast<std::streamsize>(octets.size()));
}

std::vector<std::string> browser_t::console()
{
    std::vector<std::string> lines;
    for (const json &line : ask("POST", "/se/log", {{"type", "browser"}}))
        lines.push_back(
            fmt::format("{}: {}", line.at("level").get<std::string>(), line.at("message").get<std::string>()));
    return lines;
}

} // namespace e2e
