#include "tools/ctl/explain_octets.h"

#include <iostream>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/capture.h"
#include "tools/ctl/hex.h"
#include "tools/ctl/output.h"
#include "tools/ctl/status.h"
#include "tools/ctl/status_json.h"
#include "tools/decode.h"
#include "tools/printable.h"

namespace {

std::string text_of(const std::vector<std::string> &words)
{
    if (words == std::vector<std::string>{"-"})
        return {std::istreambuf_iterator<char>(std::cin), {}};
    return fmt::format("{}", fmt::join(words, " "));
}

/// `frame` is null for what was not captured.
void print(const decoded_t &decoded, const captured_t *frame, const decode_args_t &args)
{
    if (args.json)
        fmt::print("{}\n", decoded_json(decoded, frame));
    else if (frame)
        fmt::print("frame {}, {}{}: {}", frame->number,
                   frame->time ? time_text_of_micros(*frame->time) : "at no time that can be told",
                   frame->interface.empty() ? "" : " on " + printable(frame->interface),
                   decoded_text(decoded, args.brief));
    else
        fmt::print("{}", decoded_text(decoded, args.brief));
}

/// Returns whether all is well.
bool decode_hex(const decode_args_t &args, kind_t kind)
{
    const std::vector<uint8_t> octets = parse_hex(text_of(args.hex));
    if (octets.empty())
        throw usage_t(args.hex.empty() ? "decode: give octets in hex, or --capture FILE"
                                       : "decode: there are no octets in hex");

    bool good = true;
    for (const decoded_t &decoded : decode_all(octets, kind)) {
        print(decoded, nullptr, args);
        good = good && decoded.fault.empty();
    }
    return good;
}

bool decode_capture(const decode_args_t &args)
{
    bool good = true;
    size_t explained = 0;
    for_each_captured(args.capture, [&](const captured_t &frame) {
        if (args.only_bpdus && !is_any_bpdu(frame.octets))
            return;
        const decoded_t decoded = decode(frame.octets, kind_t::frame);
        print(decoded, &frame, args);
        flush_for_reader(); // the next may not come for long
        good = good && decoded.fault.empty();
        explained++;
    });
    if (!explained)
        throw refused_t(fmt::format("{} holds no {}", args.capture, args.only_bpdus ? "BPDUs" : "frames"));
    return good;
}

} // namespace

void decode_octets(const decode_args_t &args)
{
    const auto kind = static_cast<kind_t>(parse_word("--as", args.kind, {"any", "control", "lacp", "mux", "frame"}));
    if (!args.capture.empty() && kind != kind_t::any && kind != kind_t::frame)
        throw usage_t("--as: a capture holds frames");
    if (args.only_bpdus && args.capture.empty())
        throw usage_t("--bpdu goes with --capture");
    if (!(args.capture.empty() ? decode_hex(args, kind) : decode_capture(args)))
        throw refused_t("not all of it is sound: see the faults above");
}
