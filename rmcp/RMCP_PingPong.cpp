// ASF presence ping: before anything else, make sure an ASF-capable
// management controller answers at the remote address.
#include <sys/time.h>

#include "arguments.h"
#include "process_settings.h"
#include "rmcpp.h"
#include "wire.h"

using rmcpp::wire::Reader;
using rmcpp::wire::Writer;

namespace {

constexpr const char *kName = "RMCP_PingPong";
constexpr uint32_t kAsfIana = 4542;
constexpr uint8_t kPingTag = 0x01;
constexpr uint32_t kPongLength = 28;

// 12 bytes: RMCP header of class ASF, then the ASF message header. Fields
// are big-endian, as ASF defines them.
uint32_t make_presence_ping(uint8_t *buffer, size_t size)
{
    Writer w(buffer, size);
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x06);
    w.u32be(kAsfIana).u8(0x80).u8(kPingTag).u8(0x00).u8(0x00);
    return static_cast<uint32_t>(w.size());
}

// The pong is accepted only when every field is exactly as expected. Two
// messages print the byte before the one they check; that is kept on
// purpose, as operators' log filters match those texts.
bool check_presence_pong(const uint8_t *pong, uint32_t length)
{
    if (length != kPongLength) {
        lib_log(1, "%s : Invalid lenght = %d (expected 28)\n", kName, static_cast<int>(length));
        return false;
    }
    Reader r(pong, length);
    uint8_t b;
    if ((b = r.u8()) != 0x06) {
        lib_log(1, "%s : Header-Version = %02xh (expected %02xh)\n", kName, b, 0x06);
        return false;
    }
    if ((b = r.u8()) != 0x00) {
        lib_log(1, "%s : Header-Reserved = %02xh (expected 00h)\n", kName, b);
        return false;
    }
    if ((b = r.u8()) != 0xFF) {
        lib_log(1, "%s : Header-Seq. Number = %02xh (expected FFh)\n", kName, b);
        return false;
    }
    if ((b = r.u8()) != 0x06) {
        lib_log(1, "%s : Header-Class = %02xh (expected 06h)\n", kName, b);
        return false;
    }
    uint32_t iana;
    if ((iana = r.u32be()) != kAsfIana) {
        lib_log(1, "%s : ASF-IANA Enterprise Number = %d (expected 4542)\n", kName, static_cast<int>(iana));
        return false;
    }
    if ((b = r.u8()) != 0x40) {
        lib_log(1, "%s : ASF-Message Type = %02xh (expected 40h)\n", kName, b);
        return false;
    }
    if ((b = r.u8()) != kPingTag) {
        lib_log(1, "%s : ASF-Message Tag = %02xh (expected %02xh)\n", kName, b, kPingTag);
        return false;
    }
    if ((b = r.u8()) != 0x00) {
        lib_log(1, "%s ASF-Reserved = %02xh (expected 00h)\n", kName, b);
        return false;
    }
    if ((b = r.u8()) != 0x10) {
        lib_log(1, "%s : ASF-Data Length = %02xh (expected 10h)\n", kName, b);
        return false;
    }
    if ((iana = r.u32be()) != kAsfIana) {
        lib_log(1, "%s : ASF-IANA Enterprise Number = %d (expected 4542)\n", kName, static_cast<int>(iana));
        return false;
    }
    const uint32_t oem = r.u32be();
    if (oem != 0) {
        lib_log(1, "%s : ASF-OEM defined = %d (expected 0)\n", kName, static_cast<int>(oem));
        return false;
    }
    const uint8_t oem_last = static_cast<uint8_t>(oem);
    const uint8_t entities = r.u8();
    if (entities != 0x81) {
        lib_log(1, "%s : ASF-Supported Entities = %02xh (expected 81h)\n", kName, oem_last);
        return false;
    }
    if (r.u8() != 0x00) {
        lib_log(1, "%s : ASF-Supported Interactions = %02xh (expected 00h)\n", kName, entities);
        return false;
    }
    for (int i = 0; i < 6; ++i) {
        if ((b = r.u8()) != 0x00) {
            lib_log(1, "%s : ASF-Reserved  = %02xh (expected 00h)\n", kName, b);
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" RMCPP_API int RMCP_PingPong(int socket_fd, int attempts, const struct timeval *limit)
{
    if (limit == nullptr) return rmcpp::args::null_input();
    uint8_t ping[12];
    const uint32_t ping_length = make_presence_ping(ping, sizeof ping);

    for (int attempt = 0; attempt < attempts; ++attempt) {
        const int sent = Send_RMCP(socket_fd, ping, ping_length, 0);
        if (sent != 0) return sent;

        struct timeval start;
        if (gettimeofday(&start, nullptr) != 0) {
            lib_log(2, "%s : Failed to get starting time.\n", kName);
            continue;
        }
        struct timeval now = start;
        // The time left is rewritten by the first time check, before any
        // receive: the RMCPtimeout seed never reaches a wait.
        struct timeval left = {rmcpp::load_setting(RMCPtimeout.tv_sec), rmcpp::load_setting(RMCPtimeout.tv_usec)};

        while (CheckTimeOver(&start, &now, limit, &left) == 0) {
            uint8_t pong[30];
            uint32_t length = sizeof pong;
            const int received = Receive_RMCP(socket_fd, pong, &length, 0, &left);
            if (gettimeofday(&now, nullptr) != 0) lib_log(1, "%s : Failed to get current time.\n", kName);
            // A datagram longer than the buffer is refused by its length,
            // which is then at least the buffer's.
            if (received == 2 && length > sizeof pong) length = sizeof pong;
            else if (received != 0) continue;
            if (check_presence_pong(pong, length)) return 0;
        }
    }
    lib_log(3, "Failed to do Ping/Pong over limit of retries.\n");
    return 1;
}
