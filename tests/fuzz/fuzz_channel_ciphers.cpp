// The Get Channel Cipher Suites decoder over the responses to list indexes
// 0, 1, 2, ...: the channel asked for and the room in the output record are
// option bytes, then each datagram is a length byte and that many bytes.
#include <vector>

#include "GetChannelCipherSuites.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Options in(data, size);
    const uint8_t channel = in.u8() & 0x0F;
    const uint8_t room = in.u8() % (RMCPP_MAX_CIPHER_SUITES + 2);

    std::vector<std::vector<uint8_t>> datagrams;
    while (in.size() > 0) datagrams.push_back(in.take(in.u8()));

    RMCPP_ChannelCipherSuites out{};
    // Fewer suites than the record holds: a caller built against an older, smaller record.
    out.size = room > RMCPP_MAX_CIPHER_SUITES ? sizeof out
                                              : static_cast<uint32_t>(8 + room * sizeof(RMCPP_CipherSuite));
    rmcpp::ciphers::decode(datagrams, 0x20, 0, 0x81, channel, out);

    const fuzz::Bytes list = fuzz::Options(data, size).rest();
    rmcpp::ciphers::parse_records(list.data(), list.size(), out);
    return 0;
}
