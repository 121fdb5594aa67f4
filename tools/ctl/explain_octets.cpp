#include "tools/ctl/explain_octets.h"

#include <iostream>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/capture.h"
#include "tools/ctl/hex.h"
#include "tools/ctl/status.h"
#include "tools/decode.h"

namespace {

std::string text_of(const std::vector<std::string> &words)
{
    if (words == std::vector<std::string>{"-"})
        return {std::istreambuf_iterator<char>(std::cin), {}};
    return fmt::format("{}", fmt::join(words, " "));
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
        fmt::print("{}", decoded_text(decoded, args.brief));
        good = good && decoded.fault.empty();
    }
    return good;
}

bool decode_capture(const decode_args_t &args)
{
    bool good = true;
    const size_t count = for_each_captured(args.capture, [&](const captured_t &frame) {
        const decoded_t decoded = decode(frame.octets, kind_t::frame);
        fmt::print("frame {}, {}: {}", frame.number,
                   frame.time ? time_text(*frame.time) : "at no time that can be told",
                   decoded_text(decoded, args.brief));
        good = good && decoded.fault.empty();
    });
    if (!count)
        throw refused_t(fmt::format("{} holds no frames", args.capture));
    return good;
}

} // namespace

void decode_octets(const decode_args_t &args)
{
    const auto kind = static_cast<kind_t>(parse_word("--as", args.kind, {"any", "control", "lacp", "mux", "frame"}));
    if (!args.capture.empty() && kind != kind_t::any && kind != kind_t::frame)
        throw usage_t("--as: a capture holds frames");
    if (!(args.capture.empty() ? decode_hex(args, kind) : decode_capture(args)))
        throw refused_t("not all of it is sound: see the faults above");
}
