// IPMI message framing on the managed-system side: requests in, responses out.
#pragma once

#include <optional>

#include "bmcsim.h"

namespace bmcsim::detail {

struct IpmiRequest {
    uint8_t rs_addr = 0, netfn = 0, rs_lun = 0;
    uint8_t rq_addr = 0, rq_seq = 0, rq_lun = 0;
    uint8_t cmd = 0;
    Bytes data;
};

// Reads a request message (both checksums checked); nothing when malformed.
std::optional<IpmiRequest> parse_request(const uint8_t *p, size_t n);

// The response message to `rq`: addresses swapped, netFn + 1, completion
// code first, both checksums.
Bytes response_to(const IpmiRequest &rq, uint8_t completion_code, const Bytes &data);

// Recomputes both checksums of a message in place.
void fix_checksums(Bytes &message);

constexpr size_t kV15Header = 14;  // RMCP header + v1.5 session header with length byte

// An unauthenticated IPMI v1.5 session datagram (authentication type none,
// sequence number and session ID 0) carrying `message`.
Bytes v15_datagram(const Bytes &message);
// The message of such a datagram; nothing when the session header is not
// that of an unauthenticated request outside a session.
std::optional<Bytes> read_v15_message(const Bytes &datagram);

}  // namespace bmcsim::detail
