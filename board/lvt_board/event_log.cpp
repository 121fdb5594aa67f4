#include "lvt_board/event_log.h"

#include <cerrno>
#include <system_error>

void event_log_t::open(const std::string &path)
{
    file_.reset(std::fopen(path.c_str(), "we"));
    if (!file_)
        throw std::system_error(errno, std::generic_category(), "cannot write the event log " + path);
}

void event_log_t::write(const char *topic, const std::string &text)
{
    fmt::print(file_.get(), "{:.6f} {} {}\n", clock_.seconds(), topic, text);
    std::fflush(file_.get());
}
