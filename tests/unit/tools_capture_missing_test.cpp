/// lvt_rstpctl that was built without libpcap.
#include <fmt/format.h>

#include "tools_ctl.h"

TEST_F(ctl, a_capture_file_is_refused_without_libpcap)
{
    for (const char *command : {"inject bpdu 1", "decode"})
        expect_refused(fmt::format("{} --capture x.pcap", command),
                       "x.pcap cannot be read: this lvt_rstpctl was built without libpcap. Use one that was built "
                       "with it, or give the octets in hex.");
}
