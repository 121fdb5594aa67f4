/// The JSON schema against what lvt_rstpctl prints.
#include <fmt/format.h>

#include "tools_ctl.h"
#include "tools_frames.h"

namespace {

constexpr char VALIDATOR[] = R"(
import json, sys
import jsonschema  # Debian: python3-jsonschema
schema = json.load(open(sys.argv[1]))
jsonschema.Draft7Validator.check_schema(schema)
part = {"$ref": "#/definitions/" + sys.argv[2], "definitions": schema["definitions"]}
count = 0
for line in open(sys.argv[3]):
    jsonschema.Draft7Validator(part).validate(json.loads(line))
    count += 1
print(count, "valid")
)";

class schema : public ctl {
protected:
    /// How the validator judges lines of output by one definition of the schema.
    std::string judged(const char *definition, const std::string &lines)
    {
        write_file(path("validator"), VALIDATOR);
        write_file(path("lines"), lines);
        return run_command(fmt::format("/usr/bin/python3 {} '" LVT_DOCS "/lvt_rstpctl.schema.json' {} {}",
                                       path("validator"), definition, path("lines")))
            .output;
    }
};

} // namespace

TEST_F(schema, what_is_shown)
{
    const std::string backup = replaced(replaced(STATUS, ",3,72", ",0,72"), "0,1,1,1,1,0", "0,1,0,2,1,7");
    std::string lines;
    for (const std::string &status : {std::string(STATUS), backup}) {
        report(status);
        lines += run_on_board("show -j").output;
    }
    EXPECT_EQ(judged("status", lines), "2 valid\n");
    EXPECT_NE(judged("status", replaced(run_on_board("show bridge -j").output, "\"max_age\":20", "\"max_age\":\"20\""))
                  .find("'20' is not of type 'integer'"),
              std::string::npos); // the validator works
}

TEST_F(schema, changes)
{
    const std::string second = replaced(replaced(replaced(STATUS, "0,1,1,1,1,0", "0,1,1,3,4,0"), "15,0,", "15,1,"),
                                        "32768:02-00-00-01-11-00,1\n", "61440:02-00-00-00-01-00,0\n");
    const std::string output = run_through({STATUS, second}, "monitor -j 2>/dev/null #").output;
    EXPECT_EQ(judged("change", output), "5 valid\n") << output;
}

TEST_F(schema, verdicts)
{
    report(STATUS);
    const std::string output = run_on_board("expect -j 'port 1 forwards' 'port 4 is up' 2>/dev/null #").output;
    EXPECT_EQ(judged("verdicts", output), "1 valid\n") << output;
}

TEST_F(schema, settings)
{
    report(STATUS);
    write_file(path("switch.toml"), "[groups]\n7 = [4, 5]\n");
    const std::string output = run_on_board("show config -j --file " + path("switch.toml")).output;
    EXPECT_EQ(judged("compared", output), "1 valid\n") << output;
}

TEST_F(schema, faults)
{
    write_file(path("switch.toml"), "[bridge]\npriority = 1\nmax_age = high\n");
    std::string output = run("check -j " + path("switch.toml") + " 2>/dev/null #").output;
    EXPECT_NE(output.find(R"("sound":false,"faults":[{"line":2,"column":12,)"), std::string::npos) << output;
    write_file(path("switch.toml"), "");
    output += run("check -j " + path("switch.toml")).output;
    EXPECT_EQ(judged("faults", output), "2 valid\n") << output;
}

TEST_F(schema, a_plan)
{
    write_file(path("switch.toml"), "[port.1]\nspanning_tree = true\n");
    const std::string command = "apply --dry-run -j " + path("switch.toml");
    std::string output = run_on_board(command).output;
    EXPECT_NE(output.find(R"("changes":null,"untold":"no status file at )"), std::string::npos) << output;
    report(STATUS);
    output += run_on_board(command).output;
    EXPECT_NE(output.find(R"("changes":["bridge priority 61440 -> 32768: )"), std::string::npos) << output;
    EXPECT_NE(output.find(R"({"reason":"the ports)"), std::string::npos) << output;
    EXPECT_EQ(judged("plan", output), "2 valid\n") << output;
    EXPECT_EQ(control.read_all().size(), 0u);
    expect_usage("apply -j " + path("switch.toml"), "apply: --json goes with --dry-run");
}

TEST_F(schema, explained_octets)
{
    const std::string output =
        run("decode -j 2>/dev/null " + hex(system_config_message(LVT_RSTP_SYSTEM_DEFAULTS)) + hex(rst_frame())).output;
    EXPECT_EQ(judged("decoded", output), "2 valid\n") << output;
}
