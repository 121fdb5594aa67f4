/// The rooms of the source, as docs/architecture.md has them, against every #include.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

constexpr char POSIX[] = "POSIX";
using names_t = std::set<std::string>;

struct room_t {
    std::string name; ///< "rstp/", or a file's without its ending: "lvt_rstp"
    names_t may_know; ///< rooms, files of rooms, and POSIX

    bool holds(const std::string &path) const
    {
        return name.ends_with('/') ? path.starts_with(name) : path == name + ".h" || path == name + ".cpp";
    }
};

/// What stands in `code` in a line.
std::vector<std::string> codes_in(const std::string &text)
{
    std::vector<std::string> codes;
    for (size_t open = text.find('`'); open != std::string::npos;) {
        const size_t close = text.find('`', open + 1);
        codes.push_back(text.substr(open + 1, close - open - 1));
        open = text.find('`', close + 1);
    }
    return codes;
}

/// The rows of src/, in order.
std::vector<room_t> documented_rooms()
{
    std::ifstream page(LVT_DOCS "/architecture.md");
    std::vector<room_t> rooms;
    for (std::string line; std::getline(page, line);) {
        if (!line.starts_with("| `src/"))
            continue;
        std::string name = codes_in(line).at(0).substr(4);
        if (!name.ends_with('/'))
            name.resize(name.find('.'));
        const std::string last = line.substr(line.rfind("| ", line.size() - 2));
        room_t room = {name, {}};
        for (const std::string &code : codes_in(last))
            if (!fs::exists(fs::path(LVT_SOURCES) / name / code)) // that would be its own
                room.may_know.insert(code);
        if (last.find(POSIX) != std::string::npos)
            room.may_know.insert(POSIX);
        rooms.push_back(room);
    }
    return rooms;
}

struct include_t {
    std::string file; ///< below src/
    std::string what; ///< as written: "rstp/port.h", <cstring>
};

std::vector<include_t> includes()
{
    std::vector<include_t> all;
    for (const auto &entry : fs::recursive_directory_iterator(LVT_SOURCES)) {
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);)
            if (line.starts_with("#include "))
                all.push_back({fs::relative(entry.path(), LVT_SOURCES), line.substr(sizeof "#include " - 1)});
    }
    return all;
}

const room_t *room_of(const std::vector<room_t> &rooms, const std::string &path)
{
    const auto found = std::find_if(rooms.begin(), rooms.end(), [&](const room_t &room) { return room.holds(path); });
    return found == rooms.end() ? nullptr : &*found;
}

/// The name in a room's row that allows to include `path`, empty when none does.
std::string leave_for(const room_t &room, const std::string &path)
{
    for (const std::string &name : room.may_know)
        if (name.ends_with('/') ? path.starts_with(name) : path == name)
            return name;
    return {};
}

} // namespace

TEST(rooms, have_all_files_of_the_source)
{
    const std::vector<room_t> rooms = documented_rooms();
    ASSERT_GT(rooms.size(), 5u);
    for (const auto &entry : fs::recursive_directory_iterator(LVT_SOURCES)) {
        const std::string file = fs::relative(entry.path(), LVT_SOURCES);
        if (file.ends_with(".h") || file.ends_with(".cpp")) {
            EXPECT_NE(room_of(rooms, file), nullptr) << file << " has no row in docs/architecture.md";
        }
    }
}

TEST(rooms, know_what_their_rows_say_and_no_more)
{
    const std::vector<room_t> rooms = documented_rooms();
    std::map<std::string, names_t> used;
    for (const auto &[file, what] : includes()) {
        const room_t *room = room_of(rooms, file);
        ASSERT_NE(room, nullptr) << file;
        const std::string path = what.substr(1, what.size() - 2);
        std::string leave;
        if (what.starts_with('<'))
            leave = path.ends_with(".h") ? POSIX : "C++";
        else if (room->holds(path))
            leave = room->name;
        else
            leave = leave_for(*room, path);
        EXPECT_FALSE(leave.empty() || (leave == POSIX && !room->may_know.contains(POSIX)))
            << "src/" << file << " includes " << what << ", which its row in docs/architecture.md does not allow";
        used[room->name].insert(leave);
    }
    for (const room_t &room : rooms)
        for (const std::string &name : room.may_know)
            EXPECT_TRUE(used[room.name].contains(name)) << room.name << " may know " << name << ", and does not";
}

TEST(rooms, know_rooms_above_their_own_only)
{
    const std::vector<room_t> rooms = documented_rooms();
    for (const room_t &room : rooms)
        for (const std::string &name : room.may_know) {
            if (name == POSIX)
                continue;
            const room_t *other = room_of(rooms, name);
            ASSERT_NE(other, nullptr) << name << " in the row of " << room.name;
            EXPECT_LT(other, &room) << room.name << " knows " << name;
        }
}
