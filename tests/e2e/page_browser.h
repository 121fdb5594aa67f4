/// A headless browser, told what to do by the WebDriver protocol.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "board/lab/process.h"

namespace httplib {
class Client;
}

namespace e2e {

class browser_t {
public:
    /// Throws std::runtime_error when Chromium cannot run here, and says why.
    browser_t();
    ~browser_t();
    browser_t(const browser_t &) = delete;
    browser_t &operator=(const browser_t &) = delete;

    void open(const std::string &address);

    /// What a JavaScript expression of the page is. These throw std::runtime_error with what the browser says.
    nlohmann::json value_of(const std::string &expression);

    /// Runs statements.
    void run(const std::string &statements);

    /// With the mouse, at the middle of the element that a CSS selector finds.
    void click(const std::string &selector);

    /// A key, by the code that WebDriver has for it or the letter itself.
    void press(const std::string &key);

    /// What its user likes better, as in "color-scheme", "dark".
    void prefer(const std::string &what, const std::string &value);

    /// The window as a PNG file.
    void take_picture(const std::string &path);

    /// What the console has said since the last call, the browser's own complaints included.
    std::vector<std::string> console();

private:
    nlohmann::json ask(const std::string &method, const std::string &path, const nlohmann::json &body = nullptr);

    lab::process_t driver_;
    std::unique_ptr<httplib::Client> client_;
    std::string session_;
};

} // namespace e2e
