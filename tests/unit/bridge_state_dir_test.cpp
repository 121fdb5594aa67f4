// Who rules a bridge, and what is noted of it.
#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "board/bridge/state_dir.h"

namespace {

namespace fs = std::filesystem;

class bridge_state_dir : public testing::Test {
protected:
    bridge_state_dir()
    {
        char name[] = "/tmp/lvt_state_XXXXXX";
        folder_ = mkdtemp(name);
        bridge_ = "test" + std::to_string(getpid()); // other tests may run
    }
    ~bridge_state_dir() override { fs::remove_all(folder_); }

    std::string read(const std::string &kind) const
    {
        std::ostringstream text;
        text << std::ifstream(folder_ / (bridge_ + kind)).rdbuf();
        return text.str();
    }

    fs::path folder_;
    std::string bridge_;
};

TEST_F(bridge_state_dir, is_made_where_it_is_missing)
{
    const state_dir_t state(folder_ / "a/b", bridge_);
    EXPECT_TRUE(fs::is_directory(folder_ / "a/b"));
}

TEST_F(bridge_state_dir, lets_only_one_rule_a_bridge)
{
    {
        const state_dir_t first(folder_, bridge_);
        EXPECT_THROW(state_dir_t(folder_, bridge_), ruled_already_t);
        EXPECT_NO_THROW(state_dir_t(folder_, bridge_ + "b"));
        EXPECT_THROW(state_dir_t(folder_ / "other", bridge_), ruled_already_t); // in the same network
    }
    EXPECT_NO_THROW(state_dir_t(folder_, bridge_));
}

TEST_F(bridge_state_dir, keeps_the_claim_when_it_ends)
{
    {
        const state_dir_t state(folder_, bridge_);
        EXPECT_FALSE(state.claimed());
        state.claim();
        EXPECT_TRUE(state.claimed());
    }
    const state_dir_t state(folder_, bridge_);
    EXPECT_TRUE(state.claimed());
    state.unclaim();
    EXPECT_FALSE(fs::exists(folder_ / (bridge_ + ".claim")));
}

TEST_F(bridge_state_dir, takes_the_report_away_when_it_ends)
{
    {
        state_dir_t state(folder_, bridge_);
        state.write_report("{}\n");
        EXPECT_EQ(read(".json"), "{}\n");
        state.write_report("{1}\n");
        EXPECT_EQ(read(".json"), "{1}\n");
    }
    EXPECT_FALSE(fs::exists(folder_ / (bridge_ + ".json")));
}

TEST_F(bridge_state_dir, remembers_the_ports)
{
    {
        const state_dir_t state(folder_, bridge_);
        EXPECT_EQ(state.ports(), "");
        state.write_ports("1 lan1\n");
    }
    EXPECT_EQ(state_dir_t(folder_, bridge_).ports(), "1 lan1\n");
}

TEST_F(bridge_state_dir, follows_no_link)
{
    fs::create_symlink("/etc/passwd", folder_ / (bridge_ + ".ports"));
    const state_dir_t state(folder_, bridge_);
    EXPECT_EQ(state.ports(), "");
    fs::create_symlink(folder_ / "elsewhere", folder_ / ("." + bridge_ + ".claim"));
    EXPECT_ANY_THROW(state.claim());
    EXPECT_FALSE(fs::exists(folder_ / "elsewhere"));
}

} // namespace
