#include "ipmi.h"

#include "wire.h"

namespace bmcsim::detail {

std::optional<IpmiRequest> parse_request(const uint8_t *p, size_t n)
{
    if (n < 7) return std::nullopt;
    if (rmcpp::wire::checksum(p, 2) != p[2] || rmcpp::wire::checksum(p + 3, n - 4) != p[n - 1])
        return std::nullopt;
    rmcpp::wire::Reader r(p, n - 1);
    IpmiRequest rq;
    rq.rs_addr = r.u8();
    uint8_t b = r.u8();
    rq.netfn = b >> 2;
    rq.rs_lun = b & 3;
    r.skip(1);
    rq.rq_addr = r.u8();
    b = r.u8();
    rq.rq_seq = b >> 2;
    rq.rq_lun = b & 3;
    rq.cmd = r.u8();
    rq.data.resize(r.remaining());
    r.bytes(rq.data.data(), rq.data.size());
    if (!r.ok()) return std::nullopt;
    return rq;
}

Bytes response_to(const IpmiRequest &rq, uint8_t completion_code, const Bytes &data)
{
    Bytes m(8 + data.size());
    rmcpp::wire::Writer w(m.data(), m.size());
    w.u8(rq.rq_addr).u8(static_cast<uint8_t>(((rq.netfn + 1) << 2) | rq.rq_lun)).u8(0);
    w.u8(rq.rs_addr).u8(static_cast<uint8_t>((rq.rq_seq << 2) | rq.rs_lun)).u8(rq.cmd);
    w.u8(completion_code).bytes(data.data(), data.size()).u8(0);
    fix_checksums(m);
    return m;
}

void fix_checksums(Bytes &m)
{
    if (m.size() < 7) return;
    m[2] = rmcpp::wire::checksum(m.data(), 2);
    m.back() = rmcpp::wire::checksum(m.data() + 3, m.size() - 4);
}

Bytes v15_datagram(const Bytes &message)
{
    Bytes out(kV15Header + message.size());
    rmcpp::wire::Writer w(out.data(), out.size());
    w.u8(0x06).u8(0x00).u8(0xFF).u8(0x07);
    w.u8(0x00).u32le(0).u32le(0).u8(static_cast<uint8_t>(message.size()));
    w.bytes(message.data(), message.size());
    return out;
}

std::optional<Bytes> read_v15_message(const Bytes &d)
{
    rmcpp::wire::Reader r(d.data(), d.size());
    r.skip(4);
    uint8_t auth_type = r.u8();
    uint32_t sequence = r.u32le();
    uint32_t session_id = r.u32le();
    uint8_t length = r.u8();
    if (!r.ok() || auth_type != 0 || sequence != 0 || session_id != 0 || length != r.remaining()) return std::nullopt;
    return Bytes(r.here(), r.here() + length);
}

}  // namespace bmcsim::detail
