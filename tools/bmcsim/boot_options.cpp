// System boot options: Get and Set System Boot Options with the
// set-in-progress handshake, and the platform file's boot section.
#include <stdexcept>

#include <yaml-cpp/yaml.h>

#include "engine.h"
#include "platform_admin.h"
#include "wire.h"

namespace bmcsim {

namespace detail {

namespace {

constexpr uint8_t kChassisNetFn = 0x00;
constexpr uint8_t kSetSystemBootOptions = 0x08, kGetSystemBootOptions = 0x09;
constexpr uint8_t kOk = 0x00, kParameterNotSupported = 0x80, kSetInProgressAlready = 0x81;
constexpr uint8_t kRequestLengthInvalid = 0xC7, kInvalidDataField = 0xCC;
constexpr uint8_t kParameterVersion = 0x01;

}  // namespace

bool Engine::boot_options_command(const IpmiRequest &rq, const Config &c, CommandResult &r)
{
    if (rq.netfn != kChassisNetFn || (rq.cmd != kSetSystemBootOptions && rq.cmd != kGetSystemBootOptions))
        return false;
    if (!boot_known_ || !(c.boot == boot_configured_)) {
        boot_ = boot_configured_ = c.boot;
        boot_known_ = true;
    }
    auto answer = [&](uint8_t cc, const Bytes &data = {}) { r.response = response_to(rq, cc, data); };

    if (rq.cmd == kGetSystemBootOptions) {
        if (rq.data.size() != 3) return answer(kRequestLengthInvalid), true;
        const uint8_t parameter = rq.data[0] & 0x7F;
        if (parameter == 0) return answer(kOk, {kParameterVersion, 0x00, boot_.set_in_progress}), true;
        if (parameter == 4) return answer(kOk, {kParameterVersion, 0x04, 0x00, boot_.info_acknowledge}), true;
        if (parameter == 5) {
            Bytes d(2 + boot_.boot_flags.size());
            rmcpp::wire::Writer w(d.data(), d.size());
            w.u8(kParameterVersion).u8(static_cast<uint8_t>(0x05 | (boot_.flags_locked ? 0x80 : 0)));
            w.bytes(boot_.boot_flags.data(), boot_.boot_flags.size());
            return answer(kOk, d), true;
        }
        return answer(kParameterNotSupported), true;
    }

    if (rq.data.empty()) return answer(kRequestLengthInvalid), true;
    const uint8_t parameter = rq.data[0] & 0x7F;
    const bool mark_invalid = (rq.data[0] & 0x80) != 0;
    const size_t length = rq.data.size() - 1;
    const uint8_t *d = rq.data.data() + 1;
    if (parameter == 0) {
        if (length != 1) return answer(kRequestLengthInvalid), true;
        const uint8_t state = d[0] & 0x03;
        if (state == 3) return answer(kInvalidDataField), true;
        if (state == 1 && boot_.set_in_progress == 1) return answer(kSetInProgressAlready), true;
        if (state != 2) boot_.set_in_progress = state;  // commit write: writes already took effect
        static constexpr const char *kStates[] = {"set complete", "set in progress", "commit write"};
        log(std::string("boot options: ") + kStates[state]);
        return answer(kOk), true;
    }
    if (parameter == 4) {
        if (length != 2) return answer(kRequestLengthInvalid), true;
        // Byte 1 masks which acknowledge bits byte 2 writes.
        boot_.info_acknowledge = static_cast<uint8_t>((boot_.info_acknowledge & ~d[0]) | (d[1] & d[0]));
        return answer(kOk), true;
    }
    if (parameter == 5) {
        if (length != 5) return answer(kRequestLengthInvalid), true;
        std::copy(d, d + 5, boot_.boot_flags.begin());
        boot_.flags_locked = mark_invalid;
        log("boot options: boot flags " + hex(d, 5));
        return answer(kOk), true;
    }
    return answer(kParameterNotSupported), true;
}

}  // namespace detail

namespace {

[[noreturn]] void bad(const YAML::Node &node, const std::string &what)
{
    throw std::runtime_error("line " + std::to_string(node.Mark().line + 1) + ": " + what);
}

bool flag(const YAML::Node &node, const std::string &key)
{
    try {
        return node.as<bool>();
    } catch (const YAML::Exception &) {
        bad(node, key + ": expected true or false");
    }
}

}  // namespace

void load_boot(const YAML::Node &section, Config &config)
{
    if (!section.IsMap()) bad(section, "boot: expected a mapping");
    static const std::pair<const char *, uint8_t> kDevices[] = {
        {"none", 0x0}, {"pxe", 0x1}, {"disk", 0x2}, {"safe", 0x3}, {"diag", 0x4}, {"cdrom", 0x5}, {"bios", 0x6}};
    BootOptions boot = config.boot;
    bool valid = (boot.boot_flags[0] & 0x80) != 0, persistent = (boot.boot_flags[0] & 0x40) != 0,
         efi = (boot.boot_flags[0] & 0x20) != 0;
    uint8_t device = (boot.boot_flags[1] >> 2) & 0x0F;
    for (const auto &item : section) {
        const std::string key = item.first.as<std::string>();
        const YAML::Node &value = item.second;
        if (key == "device") {
            const std::string name = value.IsScalar() ? value.as<std::string>() : "";
            bool found = false;
            for (const auto &[n, selector] : kDevices)
                if (name == n) device = selector, found = true;
            if (!found) bad(value, "boot device: expected none, pxe, disk, safe, diag, cdrom or bios");
        } else if (key == "valid") {
            valid = flag(value, key);
        } else if (key == "persistent") {
            persistent = flag(value, key);
        } else if (key == "efi") {
            efi = flag(value, key);
        } else {
            bad(item.first, "boot: unknown key '" + key + "'");
        }
    }
    boot.boot_flags[0] = static_cast<uint8_t>((valid ? 0x80 : 0) | (persistent ? 0x40 : 0) | (efi ? 0x20 : 0));
    boot.boot_flags[1] = static_cast<uint8_t>((boot.boot_flags[1] & 0xC3) | (device << 2));
    config.boot = boot;
}

}  // namespace bmcsim
