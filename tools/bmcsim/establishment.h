// Pieces shared by the Open Session and RAKP answers.
#pragma once

#include "engine.h"

namespace bmcsim::detail {

// Payload types of the pre-session messages.
enum : uint8_t {
    kOpenSessionRequest = 0x10,
    kOpenSessionResponse = 0x11,
    kRakp1 = 0x12,
    kRakp2 = 0x13,
    kRakp3 = 0x14,
    kRakp4 = 0x15,
};

// RMCP+ status codes the managed system returns.
enum : uint8_t {
    kNoError = 0x00,
    kNoResources = 0x01,
    kInvalidSessionId = 0x02,
    kInvalidAuthAlgorithm = 0x04,
    kInvalidIntegrityAlgorithm = 0x05,
    kInvalidRole = 0x09,
    kUnauthorizedRole = 0x0A,
    kInvalidNameLength = 0x0C,
    kUnauthorizedName = 0x0D,
    kInvalidIntegrityCheckValue = 0x0F,
    kInvalidConfidentialityAlgorithm = 0x10,
    kNoCipherSuiteMatch = 0x11,
    kIllegalParameter = 0x12,
};

constexpr size_t kPayloadOffset = 16;  // RMCP header + RMCP+ session header

// RMCP header, then the pre-session RMCP+ session header (session ID and
// sequence number 0), then the payload.
Bytes presession_datagram(uint8_t payload_type, const Bytes &payload);

// The pre-session header of a request: payload type and payload.
struct Presession {
    uint8_t payload_type = 0;
    uint32_t session_id = 0, sequence = 0;
    Bytes payload;
};
std::optional<Presession> read_presession(const Bytes &d);

// Applies the configured fault to an answer built by presession_datagram.
// `reserved` lists the payload offsets of its reserved bytes.
void break_establishment(const EstablishmentBehaviour &e, Bytes &b, std::initializer_list<size_t> reserved);

}  // namespace bmcsim::detail
