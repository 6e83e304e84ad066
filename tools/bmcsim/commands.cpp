// The IPMI commands the simulated BMC carries out inside a session.
#include <algorithm>

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
constexpr uint8_t kGetSystemGuid = 0x37, kSetSessionPrivilegeLevel = 0x3B, kGetSessionInfo = 0x3D;
constexpr uint8_t kGetChannelCipherSuites = 0x54;
constexpr uint8_t kGetChassisStatus = 0x01, kChassisControl = 0x02;

constexpr uint8_t kPrivilegeAboveLimit = 0x81;  // Set Session Privilege Level
constexpr uint8_t kPoweredUpByCommand = 0x10;   // last power event bit

Bytes device_id(const DeviceIdentity &d)
{
    Bytes b(15);
    rmcpp::wire::Writer w(b.data(), b.size());
    w.u8(d.device_id).u8(d.device_revision).u8(d.firmware_major).u8(d.firmware_minor);
    w.u8(d.ipmi_version).u8(d.additional_support);
    w.u8(static_cast<uint8_t>(d.manufacturer)).u8(static_cast<uint8_t>(d.manufacturer >> 8));
    w.u8(static_cast<uint8_t>((d.manufacturer >> 16) & 0x0F));
    w.u16le(d.product).bytes(d.aux.data(), d.aux.size());
    return b;
}

Bytes chassis_status(const ChassisState &c)
{
    uint8_t power = static_cast<uint8_t>((c.power_on ? 0x01 : 0) | (c.power_overload ? 0x02 : 0) |
                                         (c.interlock ? 0x04 : 0) | (c.power_fault ? 0x08 : 0) |
                                         (c.control_fault ? 0x10 : 0) | ((c.restore_policy & 0x03) << 5));
    return {power, c.last_event, c.misc, 0x00};
}

}  // namespace

uint64_t Engine::sensor_time() const
{
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_).count());
}

Engine::CommandResult Engine::command(Session &s, const IpmiRequest &rq, const Config &c)
{
    CommandResult r;
    auto answer = [&](uint8_t cc, const Bytes &data = {}) { r.response = response_to(rq, cc, data); };
    bool app = rq.netfn == kApp, chassis = rq.netfn == kChassis;
    // Crossings found while this request samples the sensors go to the SEL.
    sdr_.log_event = [this, &c](const ThresholdCrossing &x) { log_threshold_event(x, c); };

    if (app && rq.cmd == kGetDeviceId) {
        answer(kOk, device_id(c.device));
    } else if (app && rq.cmd == kGetSelfTestResults) {
        answer(kOk, {0x55, 0x00});
    } else if (app && rq.cmd == kGetSystemGuid) {
        answer(kOk, Bytes(c.guid.begin(), c.guid.end()));
    } else if (app && rq.cmd == kCloseSession) {
        if (rq.data.size() != 4) return answer(kRequestLengthInvalid), r;
        rmcpp::wire::Reader in(rq.data.data(), rq.data.size());
        uint32_t id = in.u32le();
        auto it = sessions_.find(id);
        if (it == sessions_.end() || !it->second.active) return answer(kInvalidSessionIdInRequest), r;
        answer(kOk);
        r.close = true;
        if (id != s.bmc_id) {
            // Closing another session: it goes at once; this one stays.
            close(it, " from session " + hex32(s.bmc_id));
            r.close = false;
        }
    } else if (app && rq.cmd == kSetSessionPrivilegeLevel) {
        set_session_privilege(s, rq, r);
    } else if (app && rq.cmd == kGetSessionInfo) {
        session_info(s, rq, c, r);
    } else if (app && rq.cmd == kGetChannelCipherSuites) {
        auto [cc, data] = channel_cipher_suites(c, rq.data);
        answer(cc, data);
    } else if (app && rq.cmd == kSendMessage) {
        // Channel byte, then a whole IPMB request; its response comes back
        // later as a message of its own.
        if (rq.data.size() < 1 + 7) return answer(kRequestLengthInvalid), r;
        auto inner = parse_request(rq.data.data() + 1, rq.data.size() - 1);
        if (!inner) return answer(kInvalidDataField), r;
        answer(kOk);
        CommandResult bridged = command(s, *inner, c);
        r.bridged = bridged.response;
        log("send message: bridged netFn " + hex(&inner->netfn, 1) + " command " + hex(&inner->cmd, 1) +
            " to " + hex(&inner->rs_addr, 1));
    } else if (chassis && rq.cmd == kGetChassisStatus) {
        answer(kOk, chassis_status(this->chassis(c)));
    } else if (chassis && rq.cmd == kChassisControl) {
        if (rq.data.size() != 1) return answer(kRequestLengthInvalid), r;
        uint8_t control = rq.data[0] & 0x0F;
        if (control > 5) return answer(kInvalidDataField), r;
        this->chassis(c);
        ChassisState &state = chassis_;
        bool was_on = state.power_on;
        if (control == 0x00 || control == 0x05) state.power_on = false;
        if (control == 0x01 || control == 0x02 || control == 0x03) state.power_on = true;
        if (state.power_on && (!was_on || control == 0x02)) state.last_event |= kPoweredUpByCommand;
        static constexpr const char *kControls[] = {"power down", "power up", "power cycle",
                                                    "hard reset", "diagnostic interrupt", "soft shutdown"};
        log(std::string("chassis control ") + hex(&control, 1) + " (" + kControls[control] + "): power " +
            (state.power_on ? "on" : "off"));
        answer(kOk);
    } else if (uint8_t cc = 0; sdr_.handle(rq.netfn, rq.cmd, rq.data, c, sensor_time(), cc, r.response)) {
        answer(cc, Bytes(r.response));
    } else if (sel_command(rq, c, r) || fru_command(rq, c, r)) {
        // answered in sel.cpp or fru.cpp
    } else if (boot_options_command(rq, c, r) || lan_command(rq, c, r) || user_command(rq, c, r)) {
        // answered in boot_options.cpp, lan.cpp or users.cpp
    } else {
        answer(kInvalidCommand);
    }
    return r;
}

// A threshold crossing as the SEL records it: event data 1 says that bytes 2
// and 3 carry the trigger reading and the trigger threshold.
void Engine::log_threshold_event(const ThresholdCrossing &x, const Config &c)
{
    SystemEvent e;
    e.sensor_type = x.sensor_type;
    e.sensor_number = x.sensor_number;
    e.event_type = 0x01;
    e.deassertion = !x.asserted;
    e.event_data = {static_cast<uint8_t>(0x50 | (x.event_offset & 0x0F)), x.raw_reading, x.raw_threshold};
    log_system_event(e, c);
}

void Engine::set_session_privilege(Session &s, const IpmiRequest &rq, CommandResult &r)
{
    if (rq.data.size() != 1) {
        r.response = response_to(rq, kRequestLengthInvalid, {});
        return;
    }
    uint8_t asked = rq.data[0] & 0x0F;
    uint8_t limit = s.role & 0x0F;  // the role taken in RAKP 1
    if (asked > 5) {
        r.response = response_to(rq, kInvalidDataField, {});
    } else if (asked > limit) {
        log("session " + hex32(s.bmc_id) + ": privilege " + privilege_name(asked) + " refused, above " +
            privilege_name(limit));
        r.response = response_to(rq, kPrivilegeAboveLimit, {});
    } else {
        if (asked != 0) s.privilege = asked;
        log("session " + hex32(s.bmc_id) + ": privilege " + privilege_name(s.privilege));
        r.response = response_to(rq, kOk, {s.privilege});
    }
}

void Engine::session_info(const Session &s, const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    // Index 0: this session; 1..n: the n-th active session; 0xFE: by handle;
    // 0xFF: by managed system session ID.
    if (rq.data.empty()) {
        r.response = response_to(rq, kRequestLengthInvalid, {});
        return;
    }
    uint8_t index = rq.data[0];
    size_t wanted = index == 0xFE ? 2 : index == 0xFF ? 5 : 1;
    if (rq.data.size() != wanted) {
        r.response = response_to(rq, kRequestLengthInvalid, {});
        return;
    }
    std::vector<const Session *> active;
    for (const auto &[id, x] : sessions_)
        if (x.active) active.push_back(&x);
    std::sort(active.begin(), active.end(), [](const Session *a, const Session *b) { return a->handle < b->handle; });

    const Session *found = nullptr;
    if (index == 0x00) found = &s;
    else if (index == 0xFE) {
        for (const Session *x : active)
            if (x->handle == rq.data[1]) found = x;
    } else if (index == 0xFF) {
        rmcpp::wire::Reader in(rq.data.data() + 1, 4);
        uint32_t id = in.u32le();
        for (const Session *x : active)
            if (x->bmc_id == id) found = x;
    } else if (index <= active.size()) {
        found = active[index - 1u];
    }
    Bytes d{found ? found->handle : uint8_t{0}, static_cast<uint8_t>(c.max_sessions & 0x3F),
            static_cast<uint8_t>(active.size() & 0x3F)};
    if (found) {
        d.push_back(found->user_id & 0x3F);
        d.push_back(found->privilege & 0x0F);
        d.push_back(static_cast<uint8_t>(0x10 | (c.capabilities.channel & 0x0F)));  // IPMI v2.0 / RMCP+
        // The console's address (IPv4 in 4 bytes, IPv6 in 16, most
        // significant first), its MAC address and its port (least
        // significant first).
        const Address &ip = found->peer.ip;
        Bytes address(ip.is_v4() ? 12 : 24);
        rmcpp::wire::Writer w(address.data(), address.size());
        if (ip.is_v4()) w.u32be(ip.v4());
        else w.bytes(ip.bytes.data(), ip.bytes.size());
        w.fill(0, 6).u16le(found->peer.port);  // no MAC address to give
        d.insert(d.end(), address.begin(), address.end());
    }
    r.response = response_to(rq, kOk, d);
}

}  // namespace bmcsim::detail
