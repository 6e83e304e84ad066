#include "GetChannelCipherSuites.h"

#include <sys/time.h>

#include <cstddef>
#include <cstring>

#include "process_settings.h"
#include "wire.h"

namespace rmcpp::ciphers {

namespace {

using wire::Reader;
using wire::Writer;

constexpr uint8_t kStandardRecord = 0xC0;
constexpr uint8_t kOemRecord = 0xC1;
constexpr uint8_t kTagAuthentication = 0;
constexpr uint8_t kTagIntegrity = 1;
constexpr uint8_t kTagConfidentiality = 2;
constexpr uint8_t kTagRecordStart = 3;
constexpr size_t kIanaLength = 3;

uint8_t tag_of(uint8_t b) { return static_cast<uint8_t>(b >> 6); }
uint8_t algorithm_of(uint8_t b) { return static_cast<uint8_t>(b & 0x3F); }

int damaged(size_t at)
{
    lib_log(3, "Damaged cipher suite record at byte %zu of the list.\n", at);
    return RMCPP_ERR_INVALID;
}

// One record from its start byte on: the suite ID, the IANA number of an OEM
// record, then the algorithm bytes up to the next start byte or the end.
// Kinds come in the order authentication (exactly one), integrity, then
// confidentiality, with at least one of each.
bool read_record(Reader &r, RMCPP_CipherSuite &suite)
{
    const uint8_t start = r.u8();
    suite.id = r.u8();
    if (start == kOemRecord) r.skip(kIanaLength);
    if (!r.ok() || r.remaining() == 0) return false;

    const uint8_t auth = r.u8();
    if (tag_of(auth) != kTagAuthentication) return false;
    suite.auth_alg = algorithm_of(auth);
    unsigned integrity = 0;
    unsigned confidentiality = 0;
    while (r.remaining() != 0 && tag_of(*r.here()) != kTagRecordStart) {
        const uint8_t b = r.u8();
        if (tag_of(b) == kTagIntegrity && confidentiality == 0) {
            if (integrity++ == 0) suite.integrity_alg = algorithm_of(b);
        } else if (tag_of(b) == kTagConfidentiality && integrity != 0) {
            if (confidentiality++ == 0) suite.confidentiality_alg = algorithm_of(b);
        } else {
            return false;
        }
    }
    return integrity != 0 && confidentiality != 0;
}

// The wait for one list index's response, send after send.
struct Refusal {
    int code = 0;
    long attempt = -1;
};

int await_response(int socket_fd, const IPMI_SessionParam &param, const uint8_t *request, uint32_t request_length,
                   const IPMI_MsgHeader &header, int want_channel, bool strict_peer, Piece &piece)
{
    Refusal refusal;
    for (long n = 0; n < param.retry_count; ++n) {
        if (Send_RMCP(socket_fd, request, request_length, 0) != 0) continue;
        struct timeval start;
        if (gettimeofday(&start, nullptr) != 0) {
            lib_log(2, "Failed to get starting time.\n");
            continue;
        }
        const struct timeval timeout = {param.timeout_sec, 0};
        struct timeval now = start;
        struct timeval remaining = timeout;
        while (CheckTimeOver(&start, &now, &timeout, &remaining) == 0) {
            uint8_t datagram[512];
            uint32_t length = sizeof datagram;
            const int received = Receive_RMCP(socket_fd, datagram, &length, 0, &remaining);
            if (gettimeofday(&now, nullptr) != 0) lib_log(1, "Failed to get current time.\n");
            if (received != 0) continue;
            const int r = read_response(datagram, length, header, want_channel, piece);
            if (r == kOtherDatagram) continue;
            if (r == 0 || !strict_peer) return r;
            // A BMC that really refuses says so after every send; a forged
            // or damaged datagram does not repeat.
            if (refusal.attempt >= 0 && refusal.code == r && refusal.attempt != n) {
                lib_log(1, "The same refusal came again; taking it.\n");
                return r;
            }
            refusal = {r, n};
            lib_log(1, "Dropped a response that failed its check; still waiting.\n");
        }
        lib_log(1, "Timeout, now retrying ...\n");
    }
    if (refusal.attempt >= 0) return refusal.code;
    lib_log(3, "Re-try over.\n");
    return RMCPP_ERR_RETRY_OVER;
}

// Appends one response's records to the list; true while more are to come.
bool collect(std::vector<uint8_t> &list, uint8_t index, const Piece &piece, uint8_t &first_channel)
{
    if (index == 0) first_channel = piece.channel;
    list.insert(list.end(), piece.records, piece.records + piece.length);
    return piece.length == kRecordBytesPerResponse && index < kLastListIndex;
}

}  // namespace

IPMI_MsgHeader request_header(uint8_t rs_addr, uint8_t rs_lun, uint8_t rq_addr, uint8_t list_index)
{
    const auto rq_seq = static_cast<uint8_t>((list_index + 1) & 0x3F);
    return IPMI_MsgHeader{kNetFnApp, rq_addr, kCmdGetChannelCipherSuites, 0, rq_seq, kNetFnApp + 1, rs_addr,
                          static_cast<uint8_t>(rs_lun & 3)};
}

uint32_t build_request(const IPMI_MsgHeader &header, uint8_t channel, uint8_t list_index, uint8_t *buffer,
                       uint32_t size)
{
    if (buffer == nullptr || size < kRequestLength) return 0;
    uint32_t header_length = 0;
    if (MakeRMCPHeader(buffer, &size, &header_length) != 0) return 0;

    const uint8_t data[3] = {static_cast<uint8_t>(channel & 0x0F), kPayloadIpmi,
                             static_cast<uint8_t>(kListBySuite | (list_index & kLastListIndex))};
    uint8_t message[10];
    int message_length = 0;
    if (MakeIPMIRequest(&header, data, sizeof data, message, sizeof message, &message_length) != 0) return 0;

    Writer w(buffer + header_length, size - header_length);
    // Session header: authentication type none, sequence number 0, session
    // ID 0, message length.
    w.u8(0x00).u32le(0).u32le(0).u8(static_cast<uint8_t>(message_length));
    w.bytes(message, static_cast<size_t>(message_length));
    return w.ok() ? static_cast<uint32_t>(header_length + w.size()) : 0;
}

int read_response(const uint8_t *datagram, uint32_t length, const IPMI_MsgHeader &header, int want_channel,
                  Piece &piece)
{
    uint32_t rest = length;
    uint32_t rmcp_length = 0;
    if (datagram == nullptr || Check_RMCPHead(datagram, &rest, &rmcp_length) != 0) return kOtherDatagram;
    // Leaves `rest` counting the completion code and the data, `used` the
    // offset of the completion code after the RMCP header.
    uint32_t used = 0;
    if (Check_IPMIv15_NonAuth(nullptr, datagram + rmcp_length, &rest, &header, &used) != 0) return kOtherDatagram;

    Reader r(datagram, length);
    r.skip(rmcp_length + used);
    const uint8_t completion_code = r.u8();
    if (!r.ok()) return kOtherDatagram;
    if (completion_code != 0) {
        lib_log(3, "Unexpected Completion Code = %02xh\n", completion_code);
        return RMCPP_ERR_COMPLETION;
    }
    const uint32_t data_length = rest - 1;
    if (data_length < 1 || data_length > 1 + kRecordBytesPerResponse) {
        lib_log(3, "Invalid Get Channel Cipher Suites data length = %u.\n", data_length);
        return RMCPP_ERR_DATA_LENGTH;
    }
    const uint8_t channel = r.u8() & 0x0F;
    if (want_channel != kAnyChannel && channel != want_channel) {
        lib_log(3, "Channel %u answered (expected %d).\n", channel, want_channel);
        return RMCPP_ERR_INVALID;
    }
    piece.channel = channel;
    piece.length = static_cast<uint8_t>(data_length - 1);
    if (!r.bytes(piece.records, piece.length)) return kOtherDatagram;
    return 0;
}

int wanted_channel(uint8_t channel, bool first_response, uint8_t first_channel)
{
    if (channel != kThisChannel) return channel;
    return first_response ? kAnyChannel : first_channel;
}

int capacity(const RMCPP_ChannelCipherSuites &out)
{
    constexpr size_t head = offsetof(RMCPP_ChannelCipherSuites, suites);
    if (out.size < head) return -1;
    const size_t room = (out.size - head) / sizeof(RMCPP_CipherSuite);
    return static_cast<int>(room < RMCPP_MAX_CIPHER_SUITES ? room : RMCPP_MAX_CIPHER_SUITES);
}

int parse_records(const uint8_t *data, size_t length, RMCPP_ChannelCipherSuites &out)
{
    const int room = capacity(out);
    if (room < 0) return RMCPP_ERR_BUFFER;
    out.count = 0;
    Reader r(data, data == nullptr ? 0 : length);
    size_t listed = 0;
    while (r.remaining() != 0) {
        const size_t at = r.offset();
        if (*r.here() != kStandardRecord && *r.here() != kOemRecord) {
            out.count = 0;
            return damaged(at);
        }
        RMCPP_CipherSuite suite{};
        if (!read_record(r, suite)) {
            out.count = 0;
            return damaged(at);
        }
        if (listed < static_cast<size_t>(room)) out.suites[listed] = suite;
        ++listed;
    }
    out.count = static_cast<uint32_t>(listed < static_cast<size_t>(room) ? listed : static_cast<size_t>(room));
    if (listed > out.count) {
        lib_log(3, "The channel lists %zu cipher suites; room for %u.\n", listed, out.count);
        return RMCPP_ERR_BUFFER;
    }
    return 0;
}

int decode(const std::vector<std::vector<uint8_t>> &datagrams, uint8_t rs_addr, uint8_t rs_lun, uint8_t rq_addr,
           uint8_t channel, RMCPP_ChannelCipherSuites &out)
{
    std::vector<uint8_t> list;
    uint8_t first_channel = 0;
    for (size_t index = 0; index <= kLastListIndex; ++index) {
        if (index == datagrams.size()) {
            lib_log(3, "The cipher suite list ends without its last response.\n");
            return RMCPP_ERR_INVALID;
        }
        const auto i = static_cast<uint8_t>(index);
        const IPMI_MsgHeader header = request_header(rs_addr, rs_lun, rq_addr, i);
        Piece piece;
        const int r = read_response(datagrams[index].data(), static_cast<uint32_t>(datagrams[index].size()), header,
                                    wanted_channel(channel, index == 0, first_channel), piece);
        if (r == kOtherDatagram) return RMCPP_ERR_HEADER;
        if (r != 0) return r;
        if (!collect(list, i, piece, first_channel)) break;
    }
    return parse_records(list.data(), list.size(), out);
}

int get_channel_cipher_suites(int socket_fd, const IPMI_SessionParam &param, uint8_t channel, bool strict_peer,
                              RMCPP_ChannelCipherSuites &out)
{
    if (capacity(out) < 0) return RMCPP_ERR_BUFFER;
    const uint8_t rq_addr = load_setting(RMCPConnectSA);
    std::vector<uint8_t> list;
    uint8_t first_channel = 0;
    for (uint8_t index = 0; index <= kLastListIndex; ++index) {
        const IPMI_MsgHeader header = request_header(param.slave_address, param.lun, rq_addr, index);
        uint8_t request[kRequestLength];
        const uint32_t request_length = build_request(header, channel, index, request, sizeof request);
        if (request_length == 0) {
            lib_log(3, "Failed to make Get Channel Cipher Suites Request.\n");
            return RMCPP_ERR_INTERNAL;
        }
        Piece piece;
        const int r = await_response(socket_fd, param, request, request_length, header,
                                     wanted_channel(channel, index == 0, first_channel), strict_peer, piece);
        if (r != 0) {
            lib_log(3, "Failed to do Get Channel Cipher Suites Request / Response.\n");
            return r;
        }
        if (!collect(list, index, piece, first_channel)) break;
    }
    return parse_records(list.data(), list.size(), out);
}

}  // namespace rmcpp::ciphers
