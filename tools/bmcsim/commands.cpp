// The IPMI commands the simulated BMC carries out inside a session.
#include "engine.h"
#include "wire.h"

namespace bmcsim::detail {

namespace {

enum : uint8_t { kChassis = 0x00, kApp = 0x06 };

enum : uint8_t {
    kOk = 0x00,
    kInvalidCommand = 0xC1,
    kRequestLengthInvalid = 0xC7,
    kInvalidDataField = 0xCC,
    kInvalidSessionIdInRequest = 0x87,
};

constexpr uint8_t kGetDeviceId = 0x01, kGetSelfTestResults = 0x04, kSendMessage = 0x34, kCloseSession = 0x3C;
constexpr uint8_t kGetChassisStatus = 0x01, kChassisControl = 0x02;

// Device ID 0x20, revision 1, firmware 2.15, IPMI 2.0, every device class,
// manufacturer and product IDs of our own.
const Bytes kDeviceId{0x20, 0x01, 0x02, 0x15, 0x02, 0xBF, 0x5A, 0x5A, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00};

}  // namespace

Engine::CommandResult Engine::command(const Session &s, const IpmiRequest &rq)
{
    CommandResult r;
    auto answer = [&](uint8_t cc, const Bytes &data = {}) { r.response = response_to(rq, cc, data); };

    if (rq.netfn == kApp && rq.cmd == kGetDeviceId) {
        answer(kOk, kDeviceId);
    } else if (rq.netfn == kApp && rq.cmd == kGetSelfTestResults) {
        answer(kOk, {0x55, 0x00});
    } else if (rq.netfn == kApp && rq.cmd == kCloseSession) {
        if (rq.data.size() != 4) return answer(kRequestLengthInvalid), r;
        rmcpp::wire::Reader in(rq.data.data(), rq.data.size());
        uint32_t id = in.u32le();
        auto it = sessions_.find(id);
        if (it == sessions_.end() || !it->second.active) return answer(kInvalidSessionIdInRequest), r;
        answer(kOk);
        r.close = true;
        if (id != s.bmc_id) {
            // Closing another session: it goes at once; this one stays.
            sessions_.erase(it);
            ++closed_;
            r.close = false;
            log("session " + hex32(id) + " closed from session " + hex32(s.bmc_id));
        }
    } else if (rq.netfn == kApp && rq.cmd == kSendMessage) {
        // Channel byte, then a whole IPMB request; its response comes back
        // later as a message of its own.
        if (rq.data.size() < 1 + 7) return answer(kRequestLengthInvalid), r;
        auto inner = parse_request(rq.data.data() + 1, rq.data.size() - 1);
        if (!inner) return answer(kInvalidDataField), r;
        answer(kOk);
        CommandResult bridged = command(s, *inner);
        r.bridged = bridged.response;
        log("send message: bridged netFn " + hex(&inner->netfn, 1) + " command " + hex(&inner->cmd, 1) +
            " to " + hex(&inner->rs_addr, 1));
    } else if (rq.netfn == kChassis && rq.cmd == kGetChassisStatus) {
        answer(kOk, {static_cast<uint8_t>(power_on_ ? 0x01 : 0x00), 0x00, 0x00, 0x00});
    } else if (rq.netfn == kChassis && rq.cmd == kChassisControl) {
        if (rq.data.size() != 1) return answer(kRequestLengthInvalid), r;
        uint8_t control = rq.data[0] & 0x0F;
        if (control > 5) return answer(kInvalidDataField), r;
        if (control == 0x00 || control == 0x05) power_on_ = false;
        if (control == 0x01 || control == 0x02 || control == 0x03) power_on_ = true;
        log("chassis control " + hex(&control, 1) + ": power " + (power_on_ ? "on" : "off"));
        answer(kOk);
    } else {
        answer(kInvalidCommand);
    }
    return r;
}

}  // namespace bmcsim::detail
