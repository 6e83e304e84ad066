// What the prober's tests share: a small platform with fixed readings, the
// simulator and module that serve it, and looking samples up.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "bmcsim.h"
#include "metrics.h"
#include "platform_file.h"
#include "probe.h"

namespace probetest {

// Fixed readings that convert exactly; one sensor past its upper
// non-critical threshold, one past its upper critical, one discrete.
inline constexpr const char *kPlatform = R"(
sensors:
  - name: CPU Temp
    number: 0x01
    type: Temperature
    unit: degrees C
    thresholds: {unc: 85, ucr: 90}
    reading: 45
  - name: Inlet Temp
    number: 0x02
    type: Temperature
    unit: degrees C
    thresholds: {unc: 20, ucr: 40}
    reading: 24
  - name: FAN1
    number: 0x10
    type: Fan
    unit: RPM
    m: 60
    thresholds: {lcr: 600, lnc: 900}
    reading: 3000
  - name: 12V
    number: 0x20
    type: Voltage
    unit: Volts
    m: 6
    r_exp: -2
    thresholds: {lcr: 10.8, lnc: 11.4, unc: 12.6, ucr: 13.2}
    reading: 12.06
  - name: PSU1 Power
    number: 0x40
    type: Power Supply
    unit: Watts
    m: 2
    thresholds: {unc: 120, ucr: 150}
    reading: 200
  - name: PSU1 Status
    number: 0x30
    type: Power Supply
    event_reading_type: 0x6F
    states: 0x0001
sel:
  capacity: 64
  entries:
    - raw: [0x00, 0x00, 0xC1, 0x10, 0x20, 0x30, 0x40, 0x57, 0x01, 0x00, 1, 2, 3, 4, 5, 6]
    - raw: [0x00, 0x00, 0xC1, 0x10, 0x20, 0x30, 0x40, 0x57, 0x01, 0x00, 1, 2, 3, 4, 5, 7]
    - raw: [0x00, 0x00, 0xC1, 0x10, 0x20, 0x30, 0x40, 0x57, 0x01, 0x00, 1, 2, 3, 4, 5, 8]
)";

inline bmcsim::Config platform_config(const std::string &address)
{
    bmcsim::Config c;
    c.address = address;
    c.users = {{"admin", "secret", 4, true}};
    bmcsim::load_platform_text(kPlatform, "probe-platform", c);
    return c;
}

inline exporter::Module admin_module()
{
    exporter::Module m;
    m.name = "default";
    m.user = "admin";
    m.password = "secret";
    m.privilege = 4;
    m.cipher_suite = 3;
    m.ping = true;
    return m;
}

inline exporter::Clock::time_point in(std::chrono::milliseconds ms) { return exporter::Clock::now() + ms; }

inline const exporter::Family *family(const exporter::Families &f, const std::string &name)
{
    for (const exporter::Family &x : f.all())
        if (x.name == name) return &x;
    return nullptr;
}

// The value of the sample of `name` whose labels include `labels`.
inline std::optional<double> value(const exporter::Families &f, const std::string &name,
                                   const std::vector<exporter::Label> &labels = {})
{
    const exporter::Family *x = family(f, name);
    if (!x) return std::nullopt;
    for (const exporter::Sample &s : x->samples) {
        bool all = true;
        for (const exporter::Label &want : labels) {
            bool found = false;
            for (const exporter::Label &l : s.labels) found = found || (l.name == want.name && l.value == want.value);
            all = all && found;
        }
        if (all) return s.value;
    }
    return std::nullopt;
}

// NetFn and command of a clear IPMI request as the simulator logged it.
struct Request {
    uint8_t netfn = 0, cmd = 0;
};
inline std::optional<Request> request_of(const bmcsim::Bytes &message)
{
    if (message.size() < 7) return std::nullopt;
    return Request{static_cast<uint8_t>(message[1] >> 2), message[5]};
}

// Requests netfn/cmd among the session packets received from `from` on.
inline size_t requests(const bmcsim::Stats &s, size_t from, uint8_t netfn, uint8_t cmd)
{
    size_t n = 0;
    for (size_t i = from; i < s.datagrams.size(); ++i) {
        if (s.datagrams[i].kind != bmcsim::Kind::SessionPacket) continue;
        auto r = request_of(s.datagrams[i].message);
        if (r && r->netfn == netfn && r->cmd == cmd) ++n;
    }
    return n;
}

// Datagrams of `kind` received from `from` on.
inline size_t received(const bmcsim::Stats &s, size_t from, bmcsim::Kind kind)
{
    size_t n = 0;
    for (size_t i = from; i < s.datagrams.size(); ++i) n += s.datagrams[i].kind == kind;
    return n;
}

}  // namespace probetest
