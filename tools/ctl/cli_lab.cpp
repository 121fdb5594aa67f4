/// The commands for tests and labs: inject, decode, debug.
#include <memory>

#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/debug.h"
#include "tools/ctl/explain_octets.h"
#include "tools/ctl/hex.h"
#include "tools/ctl/inject.h"
#include "tools/ctl/send.h"

namespace {

// ---- inject ----------------------------------------------------------------------------

void add_inject_link_command(CLI::App &inject, const ctl_t &ctl)
{
    auto *command = inject.add_subcommand("link", "Tells of the links of all ports, as the driver does");
    command->footer(
        "A LINK reads LIST=up, LIST=down, LIST=SPEED/full or LIST=SPEED/half, SPEED in Mbit/s; up is\n"
        "1000/full. One message tells of all ports: one that is not named is down.\n"
        "Example:\n"
        "  lvt_rstpctl inject link 1-3=up 4=100/half");
    auto links = std::make_shared<std::vector<std::string>>();
    command->add_option("LINK", *links, "Ports and their link")->type_name("");
    command->callback([links, &ctl] {
        if (links->empty())
            throw usage_t("inject link: name at least one link, as in all=down");
        const port_statuses_t ports = parse_links(*links);
        send_message(ctl, port_status_message(ports),
                     on_at_text(
                         "link", [&](unsigned port) { return ports[port - 1].link != 0; }, "up", "down"));
    });
}

struct bpdu_args_t {
    std::string ports;
    bpdu_words_t words;
    std::string hex;
    std::string capture;
    std::string number;
};

void inject_bpdu(const ctl_t &ctl, const bpdu_args_t &args)
{
    const std::vector<unsigned> ports = parse_ports("LIST", args.ports);
    if (!(args.hex.empty() && args.capture.empty()) && args.words != bpdu_words_t())
        throw usage_t("fields do not go with --hex or --capture");
    if (!args.capture.empty())
        inject_capture(ctl, ports, args.capture,
                       args.number.empty() ? std::nullopt : std::optional(parse_number("--frame", args.number)));
    else
        inject_frame(ctl, ports, args.hex.empty() ? make_bpdu(args.words) : parse_hex(args.hex));
}

void add_inject_bpdu_command(CLI::App &inject, const ctl_t &ctl)
{
    auto *command = inject.add_subcommand("bpdu", "Hands BPDUs to the daemon as received on ports");
    command->footer(
        "The frame is made of fields, of hex, or taken from a capture file.\n"
        "Examples:\n"
        "  lvt_rstpctl inject bpdu 2 --root-id 4096/02:00:00:00:99:00 --flags proposal\n"
        "  lvt_rstpctl inject bpdu 2 --type tcn\n"
        "  lvt_rstpctl inject bpdu 2 --capture trace.pcap --frame 7");

    auto args = std::make_shared<bpdu_args_t>();
    command->add_option("LIST", args->ports, "Front ports, as 2 or 1,3-5 or all")->type_name("")->required();
    auto *hex = command->add_option("--hex", args->hex, "The frame, from its destination address on");
    auto *capture = command->add_option("--capture", args->capture, "All BPDUs of a pcap file")->type_name("FILE");
    hex->type_name("OCTETS")->excludes(capture);
    command->add_option("--frame", args->number, "Only this frame of it, whatever it is")
        ->type_name("N")
        ->needs(capture);
    const auto field = [&](const char *name, std::string &value, const char *type, const char *text) {
        command->add_option(name, value, text)->type_name(type)->capture_default_str()->group("Fields");
    };
    field("--type", args->words.type, "TYPE", "rst, config or tcn");
    field("--source", args->words.source, "ADDRESS", "Who sends the frame");
    field("--root-id", args->words.root, "PRIORITY/ADDRESS", "The root");
    field("--cost", args->words.cost, "N", "Root path cost");
    field("--bridge-id", args->words.bridge, "PRIORITY/ADDRESS", "The sending bridge, by default the root");
    field("--port-id", args->words.port_id, "N", "Port identifier");
    field("--role", args->words.role, "ROLE", "unknown, alternate, root or designated (rst only)");
    field("--flags", args->words.flags, "FLAGS", "tc, proposal, learning, forwarding, agreement, tc-ack");
    field("--message-age", args->words.message_age, "N", "Seconds");
    field("--max-age", args->words.max_age, "N", "Seconds");
    field("--hello", args->words.hello_time, "N", "Seconds");
    field("--forward-delay", args->words.forward_delay, "N", "Seconds");
    command->callback([args, &ctl] { inject_bpdu(ctl, *args); });
}

void add_inject_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("inject", "Plays the daemon's neighbours on the board")->group(HEADING_TEST);
    command->require_subcommand(1);
    command->footer(
        "Example:\n"
        "  lvt_rstpctl inject link 1-2=up");
    add_inject_link_command(*command, ctl);
    add_groups_command(*command, ctl);
    add_inject_bpdu_command(*command, ctl);
}

// ---- decode ----------------------------------------------------------------------------

void add_decode_command(CLI::App &app, const ctl_t &)
{
    auto *command = app.add_subcommand("decode", "Explains messages and BPDUs field by field")->group(HEADING_TEST);
    command->footer(
        "HEX is octets in hex, with or without blanks, colons and line ends; \"-\" reads them from\n"
        "standard input. Control messages, messages to the LACP daemon and the port multiplexer, and\n"
        "frames with BPDUs, with or without switch tag and VLAN tags, are told apart by how they begin.\n"
        "Exit status 1: something is cut off or not known.\n"
        "Examples:\n"
        "  lvt_rstpctl decode bc 30 11 82 06 00 00 00 0a 00 06 00 00 00 00 00 01 01 00 00 00 00\n"
        "  xxd -p message | lvt_rstpctl decode -\n"
        "  lvt_rstpctl decode --capture trace.pcap --brief\n"
        "  tcpdump -i sw1p1 -U -w - | lvt_rstpctl decode --capture - --bpdu --brief");

    auto args = std::make_shared<decode_args_t>();
    auto *hex = command->add_option("HEX", args->hex, "Octets in hex, or \"-\"")->type_name("");
    command->add_option("--capture", args->capture, "All frames of a pcap file instead, \"-\": as they come")
        ->type_name("FILE")
        ->excludes(hex);
    command->add_option("--as", args->kind, "Take them for control, lacp, mux or frame")->type_name("KIND");
    command->add_flag("--brief", args->brief, "One line for each, without its fields");
    command->add_flag("--bpdu", args->only_bpdus, "Only BPDUs of the capture, no other frames");
    command->add_flag("-j,--json", args->json, "JSON, one document to a line")->excludes("--brief");
    command->callback([args] { decode_octets(*args); });
}

// ---- debug -----------------------------------------------------------------------------

void add_debug_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("debug", "Hands a debug command to the daemon")->group(HEADING_TEST);
    command->footer(
        "The daemon answers on the board's console; without WORDS it lists its commands there. What\n"
        "comes on a simulated board's console, which is a file, is shown.\n"
        "Example:\n"
        "  lvt_rstpctl debug show rstp_port_status 3");

    auto words = std::make_shared<std::vector<std::string>>();
    command->add_option("WORDS", *words, "The command without its first word, \"debug\"")->type_name("");
    command->callback([words, &ctl] { debug(ctl, *words); });
}

} // namespace

void add_lab_commands(CLI::App &app, const ctl_t &ctl)
{
    add_inject_command(app, ctl);
    add_decode_command(app, ctl);
    add_debug_command(app, ctl);
}
