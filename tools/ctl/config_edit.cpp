#include "tools/ctl/config_edit.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <random>
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

/// Makes a file of its own for what will take the file's place. Returns its descriptor, or -1.
int create_beside(const folder_t &folder, std::string &name)
{
    constexpr int ATTEMPTS = 100;
    std::random_device chance;
    for (int attempt = 0; attempt < ATTEMPTS; attempt++) {
        name = fmt::format("{}.{:08x}", folder.name(), chance());
        const int fd = openat(folder.number(), name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    return -1;
}

/// Writes a new file, with the owner and permissions of the one whose place it will take.
bool write_whole(int fd, const std::string &text, const folder_t &folder)
{
    struct stat before = {}, mine = {};
    if (fstat(fd, &mine) != 0)
        return false;
    const bool replaces = fstatat(folder.number(), folder.name().c_str(), &before, AT_SYMLINK_NOFOLLOW) == 0;
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

config_lock_t::config_lock_t(const place_t &place) : folder_(place)
{
    errno = folder_.error();
    if (folder_.number() < 0)
        refuse(place.text());
    for (const auto deadline = std::chrono::steady_clock::now() + LOCK_PATIENCE;
         flock(folder_.number(), LOCK_EX | LOCK_NB) != 0; std::this_thread::sleep_for(LOCK_POLL_PAUSE)) {
        if (errno != EWOULDBLOCK)
            refuse(place.text());
        if (std::chrono::steady_clock::now() >= deadline)
            throw refused_t(
                fmt::format("another program has held a lock on the folder of {} for {} s, as an lvt_rstpctl "
                            "does that is stopped. Nothing was changed or sent: end it, and try again.",
                            place.text(), LOCK_PATIENCE.count()));
    }
}

void save_config(const place_t &place, const std::string &text)
{
    const folder_t folder(place);
    errno = folder.error();
    std::string temporary;
    const int fd = folder.number() < 0 ? -1 : create_beside(folder, temporary);
    if (fd < 0)
        refuse(place.text());
    const bool whole = write_whole(fd, text, folder) &&
                       renameat(folder.number(), temporary.c_str(), folder.number(), folder.name().c_str()) == 0;
    const int error = errno;
    close(fd);
    if (whole)
        return;
    unlinkat(folder.number(), temporary.c_str(), 0);
    errno = error;
    refuse(place.text());
}

void remove_config(const place_t &place)
{
    const folder_t folder(place);
    if (unlinkat(folder.number(), folder.name().c_str(), 0) != 0)
        refuse(place.text());
}
