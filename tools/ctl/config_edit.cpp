#include "tools/ctl/config_edit.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include "tools/ctl/ctl.h"

namespace {

using namespace std::chrono_literals;

constexpr auto LOCK_PATIENCE = 10s; ///< several changes, one after the other
constexpr auto LOCK_POLL_PAUSE = 10ms;

/// The octet of the text at a place in lines and columns, both from 1. Columns count characters,
/// which may have several octets.
size_t offset_of(const std::string &text, const toml::source_position &place)
{
    size_t at = text.starts_with("\xEF\xBB\xBF") ? 3 : 0; // a byte order mark has no column
    for (unsigned line = 1; line < place.line; line++)
        at = text.find('\n', at) + 1;
    const auto goes_on = [&] { return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
    for (unsigned column = 1; column < place.column; column++)
        for (at++; goes_on();)
            at++;
    return at;
}

/// The line end after `at`, or the text's end.
size_t end_of_line(const std::string &text, size_t at) { return std::min(text.find('\n', at), text.size()); }

std::string line_of(const edit_t &edit) { return fmt::format("{} = {}", edit.key, edit.value); }

std::string with_section(std::string text, const edit_t &edit)
{
    if (!text.empty() && !text.ends_with('\n'))
        text += '\n';
    return fmt::format("{}{}[{}]\n{}\n", text, text.empty() ? "" : "\n", edit.section, line_of(edit));
}

/// A new line goes below the last line that sets something in the section.
std::string with_line(std::string text, const toml::table &section, const edit_t &edit)
{
    const size_t start = offset_of(text, section.source().begin);
    if (section.is_inline() || text[start] != '[')
        throw refused_t(fmt::format("there is no place for a new line \"{}\": write [{}] as a section of its own",
                                    line_of(edit), edit.section));

    size_t last = end_of_line(text, start);
    for (const auto &[key, node] : section)
        if (!node.is_table())
            last = std::max(last, end_of_line(text, offset_of(text, node.source().end)));
    return text.insert(last, fmt::format("\n{}", line_of(edit)));
}

[[noreturn]] void refuse(const std::string &path)
{
    const char *next_step = errno == ENOENT || errno == ENOTDIR ? ". Make its folder first."
                            : errno == EACCES || errno == EPERM || errno == EROFS
                                ? ". Try it as root, or name another file."
                                : "";
    throw refused_t(fmt::format("cannot write {}: {}{}", path, std::strerror(errno), next_step));
}

/// What a path leads to: a link stays one.
std::string target_of(const std::string &path)
{
    std::error_code none;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, none);
    return none ? path : real.string();
}

/// Writes a new file, with the owner and permissions of the one whose place it will take.
bool write_whole(int fd, const std::string &text, const std::string &target)
{
    struct stat before = {}, mine = {};
    if (fstat(fd, &mine) != 0)
        return false;
    const bool replaces = stat(target.c_str(), &before) == 0;
    const bool foreign = replaces && (before.st_uid != mine.st_uid || before.st_gid != mine.st_gid);
    return (!foreign || fchown(fd, before.st_uid, before.st_gid) == 0) &&
           fchmod(fd, replaces ? before.st_mode & 07777 : 0644) == 0 &&
           write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
}

std::string edited_text(const std::string &text, const edit_t &edit)
{
    const toml::table file = toml::parse(text);
    const auto section = file.at_path(edit.section);
    if (!section)
        return with_section(text, edit);
    const toml::node *value = section.as_table() ? section.as_table()->get(edit.key) : nullptr;
    if (!value)
        return section.as_table() ? with_line(text, *section.as_table(), edit) : with_section(text, edit);

    const size_t begin = offset_of(text, value->source().begin);
    const size_t end = offset_of(text, value->source().end);
    return text.substr(0, begin) + edit.value + text.substr(end);
}

} // namespace

std::string with_setting(const std::string &text, const edit_t &edit)
{
    const std::string edited = edited_text(text, edit);
    const auto value_in = [&edit](const std::string &file) {
        std::ostringstream value;
        value << toml::parse(file).at_path(fmt::format("{}.{}", edit.section, edit.key));
        return value.str();
    };
    try {
        if (value_in(edited) == value_in(with_section("", edit)))
            return edited;
    } catch (const toml::parse_error &) {
    }
    throw refused_t(fmt::format("nothing was changed: {} = {} could not be put into [{}]. Write it by hand.", edit.key,
                                edit.value, edit.section));
}

config_lock_t::config_lock_t(const std::string &path)
{
    const std::string folder = std::filesystem::path(target_of(path)).parent_path().string();
    folder_ = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder_ < 0)
        refuse(path);
    for (const auto deadline = std::chrono::steady_clock::now() + LOCK_PATIENCE; flock(folder_, LOCK_EX | LOCK_NB) != 0;
         std::this_thread::sleep_for(LOCK_POLL_PAUSE)) {
        const int error = errno;
        if (error == EWOULDBLOCK && std::chrono::steady_clock::now() < deadline)
            continue;
        close(folder_);
        if (error == EWOULDBLOCK)
            throw refused_t(
                fmt::format("another program has held a lock on the folder of {} for {} s, as an lvt_rstpctl "
                            "does that is stopped. Nothing was changed or sent: end it, and try again.",
                            path, LOCK_PATIENCE.count()));
        errno = error;
        refuse(path);
    }
}

config_lock_t::~config_lock_t() { close(folder_); }

void save_config(const std::string &path, const std::string &text)
{
    const std::string target = target_of(path);
    std::string temporary = target + ".XXXXXX";
    const int fd = mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        refuse(path);
    const bool whole = write_whole(fd, text, target) && rename(temporary.c_str(), target.c_str()) == 0;
    const int error = errno;
    close(fd);
    if (whole)
        return;
    unlink(temporary.c_str());
    errno = error;
    refuse(path);
}
