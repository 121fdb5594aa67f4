// A checkout works wherever it lies, also where a switch has a folder of its own, and in a chroot. The
// places are made up in the world of the test's own.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "fixture.h"

namespace {

using namespace e2e;
using testing::HasSubstr;
namespace fs = std::filesystem;

const fs::path BUILD = lab::own_program().parent_path().parent_path();

constexpr uid_t SOMEBODY = 1000;

/// What is tried in each place: a port in a shell of the switch, and what the shell sees.
constexpr char CASE[] =
    "pwd && cat README.md && lvt_rstpctl set port 3 --spanning-tree on >/dev/null && "
    "lvt_rstpctl expect 'port 3 is designated' --within 10 && [ ! -e /tmp/of_the_machine ]";

void bind(const fs::path &folder, const fs::path &place)
{
    fs::create_directories(place);
    lab::checked(mount(folder.c_str(), place.c_str(), nullptr, MS_BIND | MS_REC, nullptr), place);
}

class lab_places : public testing::Test {
protected:
    lab_places() : build_(lab::checked(open(BUILD.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), BUILD))
    {
        cover(BUILD); // what is tried has to do with the copy alone
    }
    ~lab_places() override
    {
        for (; !covered_.empty(); covered_.pop_back())
            umount2(covered_.back().c_str(), MNT_DETACH);
    }

    /// Puts an empty folder in the place of another, for this test.
    void cover(const fs::path &folder)
    {
        lab::checked(mount("tmpfs", folder.c_str(), "tmpfs", 0, "mode=755"), folder);
        covered_.push_back(folder);
    }

    /// Copies this build's programs into a folder with bin/ and lib/.
    void copy_build(const fs::path &copy) const
    {
        const fs::path build = fmt::format("/proc/self/fd/{}", build_.number());
        fs::create_directories(copy / "bin");
        fs::create_directories(copy / "lib");
        for (const char *name : {"lvt_board", "lvt_rstpctl", "lvt_rstpd", "lvt_switch"})
            fs::copy(build / "bin" / name, copy / "bin" / name);
        for (const auto &entry : fs::directory_iterator(build / "lib"))
            if (entry.path().extension() == ".so")
                fs::copy(entry.path(), copy / "lib" / entry.path().filename());
    }

    /// Makes what stands for a checkout that was built in its place.
    void make_clone(const fs::path &clone) const
    {
        copy_build(clone / "build/release");
        std::ofstream(clone / "README.md") << "a clone\n";
    }

    /// Runs a switch with a host at port 3 and a shell for `script`, in `folder` and after the words of `before`.
    static lab::outcome_t run(const fs::path &folder, const std::string &script, std::vector<std::string> before = {},
                              std::vector<std::string> environment = {})
    {
        std::vector<std::string> argv = std::move(before);
        for (const char *word : {"sh", "-c", "cd \"$0\" && exec build/release/bin/lvt_switch --host 3 --run \"$1\""})
            argv.push_back(word);
        argv.push_back(folder);
        argv.push_back(script);
        return lab::run({.argv = std::move(argv), .environment = std::move(environment)});
    }

    static void expect_case(const lab::outcome_t &outcome, const std::string &clone)
    {
        EXPECT_EQ(outcome.exit_code, 0);
        EXPECT_EQ(outcome.output, clone + "\na clone\n");
    }

private:
    const fd_t build_;
    std::vector<fs::path> covered_;
};

class lab_place : public lab_places, public testing::WithParamInterface<const char *> {};

TEST_P(lab_place, runs_the_clone)
{
    const fs::path clone = GetParam();
    cover("/" / *std::next(clone.begin()));
    make_clone(clone);
    std::ofstream("/tmp/of_the_machine");
    expect_case(run(clone, CASE), clone);
}

INSTANTIATE_TEST_SUITE_P(at, lab_place,
                         testing::Values("/tmp/clone", "/tmp/deep/down/clone", "/tmp/with blanks/it's a clone",
                                         "/var/clone", "/var/tmp/with blanks/a clone"),
                         [](const auto &row) {
                             std::string name = row.param + 1;
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
                             return name;
                         });

TEST_F(lab_places, home_that_only_its_owner_may_enter)
{
    cover("/home");
    make_clone("/home/somebody/clone");
    lab::checked(chmod("/home/somebody", 0700), "the home's mode");
    const std::string id = std::to_string(SOMEBODY);
    std::vector<std::string> as_owner; // where this is an ordinary user's world, nobody else is there
    if (chown("/home/somebody", SOMEBODY, SOMEBODY) == 0)
        as_owner = {"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups"};

    const lab::outcome_t outcome = run("/home/somebody/clone", CASE, as_owner);
    if (outcome.output.find("- a user namespace") != std::string::npos)
        GTEST_SKIP() << "cannot run here: ordinary users have no user namespaces";
    expect_case(outcome, "/home/somebody/clone");
}

TEST_F(lab_places, home_of_somebody_else)
{
    cover("/home");
    make_clone("/home/somebody/clone");
    lab::checked(chmod("/home/somebody", 0700), "the home's mode");
    if (chown("/home/somebody", SOMEBODY, SOMEBODY) != 0)
        GTEST_SKIP() << "cannot run here: there is nobody else in an ordinary user's world";

    expect_case(run("/home/somebody/clone", CASE), "/home/somebody/clone");

    const lab::outcome_t outcome =
        run("/home/somebody/clone", "true", {"setpriv", "--bounding-set=-sys_admin", "--inh-caps=-all"});
    if (outcome.output.find("- a user namespace") != std::string::npos)
        GTEST_SKIP() << "cannot run here: ordinary users have no user namespaces";
    EXPECT_EQ(outcome.exit_code, 3);
    EXPECT_THAT(outcome.output, HasSubstr("Permission denied\n    run it as the user who owns that folder"));
}

TEST_F(lab_places, etc_where_no_overlay_is_allowed)
{
    cover("/home");
    make_clone("/home/clone");
    for (const char *folder : {"/home/upper", "/home/work", "/home/upper2", "/home/work2"})
        fs::create_directory(folder);
    // The kernel allows two, one on the other.
    int overlays = 0;
    for (const char *folders : {"lowerdir=/etc,upperdir=/home/upper,workdir=/home/work",
                                "lowerdir=/etc,upperdir=/home/upper2,workdir=/home/work2"})
        overlays += mount("overlay", "/etc", "overlay", 0, folders) == 0;
    const lab::outcome_t outcome =
        run("/home/clone",
            "cmp /etc/passwd /proc/1/root/etc/passwd && lvt_rstpctl set port 3 --edge off >/dev/null && "
            "grep edge /etc/lvt_rstp.toml && grep ' /etc ' /proc/mounts | tail -n 1");
    for (; overlays > 0; overlays--)
        umount2("/etc", MNT_DETACH);
    EXPECT_THAT(outcome.output, testing::ContainsRegex("^edge = false\ntmpfs /etc tmpfs "));
    EXPECT_FALSE(fs::exists("/etc/lvt_rstp.toml"));
}

TEST_F(lab_places, program_that_was_not_built)
{
    cover("/tmp");
    make_clone("/tmp/a clone");
    std::ofstream("/tmp/a clone/build/release/CMakeCache.txt");
    for (const char *name : {"lvt_board", "lvt_rstpd"}) {
        fs::remove(fs::path("/tmp/a clone/build/release/bin") / name);
        const lab::outcome_t outcome = run("/tmp/a clone", "true");
        EXPECT_EQ(outcome.exit_code, 3);
        EXPECT_THAT(outcome.output,
                    HasSubstr(fmt::format("  - the program /tmp/a clone/build/release/bin/{0}\n"
                                          "    cmake --build \"/tmp/a clone/build/release\" --target {0}\n",
                                          name)));
        copy_build("/tmp/other");
        fs::copy(fs::path("/tmp/other/bin") / name, fs::path("/tmp/a clone/build/release/bin") / name);
        fs::remove_all("/tmp/other");
    }
}

TEST_F(lab_places, programs_of_several_builds)
{
    cover("/tmp");
    make_clone("/tmp/clone");
    fs::create_directory("/tmp/board");
    cover("/tmp/board"); // a file system of its own
    for (const char *build : {"/tmp/board", "/tmp/daemon", "/tmp/tool"})
        copy_build(build);
    fs::create_symlink("daemon", "/tmp/link");
    std::ofstream("/tmp/of_the_machine");

    fs::create_directory("/tmp/desk");
    std::ofstream("/tmp/desk/note") << "a note\n";

    const lab::outcome_t outcome =
        lab::run({.argv = {"env", "--chdir=/tmp/desk", "/tmp/clone/build/release/bin/lvt_switch", "--run",
                           "cat note && ls /tmp && readlink /proc/[0-9]*/exe; "
                           "$LVT_RSTPCTL expect root is this bridge --within 10"},
                  .environment = {"LVT_BOARD=/tmp/board/bin/lvt_board", "LVT_RSTPD=/tmp/link/bin/lvt_rstpd",
                                  "LVT_RSTPCTL=/tmp/tool/bin/lvt_rstpctl"}});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
    EXPECT_THAT(outcome.output, testing::StartsWith("a note\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n/tmp/board/bin/lvt_board\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n/tmp/daemon/bin/lvt_rstpd\n"));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("of_the_machine")));
}

// ---- chroot -----------------------------------------------------------------------------------

/// A chroot of this machine's own programs, with the clone in its /tmp. Its / is a plain folder.
class lab_chroot : public lab_places {
protected:
    void SetUp() override
    {
        cover("/tmp");
        for (const auto &entry : fs::directory_iterator("/")) {
            const std::string name = entry.path().filename();
            if (entry.is_symlink())
                fs::copy_symlink(entry, ROOT / name);
            else if (name == "usr" || name == "bin" || name == "sbin" || name.starts_with("lib"))
                bind(entry, ROOT / name);
        }
        for (const char *folder : {"/etc", "/dev", "/proc"})
            bind(folder, ROOT / (folder + 1));
        make_clone(ROOT / "tmp/clone");
        std::ofstream(ROOT / "tmp/of_the_machine");
    }

    static lab::outcome_t run(const std::string &script, const fs::path &folder = "/tmp/clone")
    {
        return lab_places::run(folder, script, {"chroot", ROOT});
    }

    static void expect_lack(const lab::outcome_t &outcome, const std::string &words)
    {
        EXPECT_EQ(outcome.exit_code, 3);
        EXPECT_THAT(outcome.output, testing::EndsWith(words));
    }

    inline static const fs::path ROOT = "/tmp/root";
};

TEST_F(lab_chroot, whose_root_is_a_plain_folder) { expect_case(run(CASE), "/tmp/clone"); }

TEST_F(lab_chroot, whose_root_is_a_mount_point)
{
    bind(ROOT, ROOT);
    expect_case(run(CASE), "/tmp/clone");
}

TEST_F(lab_chroot, without_proc)
{
    lab::checked(umount2((ROOT / "proc").c_str(), MNT_DETACH), "proc");
    expect_case(run(CASE), "/tmp/clone");
}

TEST_F(lab_chroot, whose_tmp_is_a_link)
{
    fs::create_directory(ROOT / "var");
    fs::rename(ROOT / "tmp", ROOT / "var/tmp");
    fs::create_symlink("var/tmp", ROOT / "tmp");
    expect_case(run(CASE), "/tmp/clone");
}

TEST_F(lab_chroot, without_tmp)
{
    fs::rename(ROOT / "tmp", ROOT / "srv");
    expect_lack(run("true", "/srv/clone"),
                "  - a /tmp of its own (tmpfs): No such file or directory\n"
                "    mkdir -m 1777 /tmp\n");
}

TEST_F(lab_chroot, without_devices)
{
    cover(ROOT / "dev");
    expect_lack(run("true"),
                "  - the device /dev/null: No such file or directory\n"
                "    as root: rm -f /dev/null && mknod -m 666 /dev/null c 1 3\n");
}

TEST_F(lab_chroot, of_an_ordinary_user)
{
    const std::vector<std::string> ordinary = {"chroot", ROOT, "setpriv", "--bounding-set=-all", "--inh-caps=-all"};
    expect_lack(lab_places::run("/tmp/clone", "true", ordinary),
                "  - a user namespace, to be root in: Operation not permitted\n"
                "    this is a chroot, where the kernel lets only root with all capabilities have namespaces: run it "
                "as root\n");
}

TEST_F(lab_chroot, keeps_its_mounts_to_itself)
{
    lab::checked(mount(nullptr, "/tmp", nullptr, MS_REC | MS_SHARED, nullptr), "shared mounts"); // as Debian's are
    const auto mounts = [] {
        std::ifstream file("/proc/self/mountinfo");
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const std::string before = mounts();
    const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory for the output"));
    lab::process_t starter = lab::start({.argv = {"chroot", ROOT, "/tmp/clone/build/release/bin/lvt_switch"},
                                         .out = output.number(),
                                         .err = output.number()});
    const auto said = [&] {
        std::ifstream text(fmt::format("/proc/self/fd/{}", output.number()));
        return std::string(std::istreambuf_iterator<char>(text), {});
    };
    ASSERT_TRUE(lab::within(SOON, [&] { return said().find("is up") != std::string::npos; })) << said();
    EXPECT_EQ(mounts(), before);
    starter.signal(SIGTERM);
    EXPECT_TRUE(lab::within(SOON, [&] { return !starter.running(); }));
    EXPECT_EQ(mounts(), before);
}

} // namespace
