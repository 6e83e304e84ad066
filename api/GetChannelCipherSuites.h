// Get Channel Cipher Suites (NetFn App, command 54h) outside any session:
// the request, the checks of each response, the record list they carry and
// the exchange that asks for list index 0, 1, 2, ... until the BMC has told
// all. Requests go in IPMI v1.5 framing with authentication type none, as
// Get Channel Authentication Capabilities does: BMCs that answer nothing
// outside a session in RMCP+ framing (OpenIPMI's ipmi_sim among them)
// answer this.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "rmcpp.h"

namespace rmcpp::ciphers {

constexpr uint8_t kNetFnApp = 0x06;
constexpr uint8_t kCmdGetChannelCipherSuites = 0x54;
constexpr uint8_t kThisChannel = 0x0E;  // the channel the request arrives on
constexpr uint8_t kPayloadIpmi = 0x00;
constexpr uint8_t kListBySuite = 0x80;  // list index bit 7: list algorithms by cipher suite
constexpr uint8_t kLastListIndex = 0x3F;
constexpr size_t kRecordBytesPerResponse = 16;

// RMCP header, session header, and an IPMI message with three data bytes.
constexpr uint32_t kRequestLength = 24;

// What each request is matched by: its own rqSeq, so that a late answer to
// an earlier list index is never taken for the awaited one.
IPMI_MsgHeader request_header(uint8_t rs_addr, uint8_t rs_lun, uint8_t rq_addr, uint8_t list_index);

// Writes the request for `list_index` of `channel`; returns its length
// (kRequestLength), or 0 when `size` is too small.
uint32_t build_request(const IPMI_MsgHeader &header, uint8_t channel, uint8_t list_index, uint8_t *buffer,
                       uint32_t size);

// The part of the list one response carries.
struct Piece {
    uint8_t channel = 0;
    uint8_t length = 0;  // 0..16
    uint8_t records[kRecordBytesPerResponse] = {};
};

// A datagram that is not the response `header` awaits: a wrong RMCP or
// session header, another message, a bad checksum.
constexpr int kOtherDatagram = -1;
// `want_channel` for a response whose channel number is not checked.
constexpr int kAnyChannel = -1;

// Checks one received datagram against the request's header. Returns 0 with
// `piece` filled; kOtherDatagram; RMCPP_ERR_COMPLETION for a non-zero
// completion code; RMCPP_ERR_DATA_LENGTH for no channel number or more than
// 16 bytes of records; RMCPP_ERR_INVALID for a channel other than
// `want_channel`. Never reads past `length`.
int read_response(const uint8_t *datagram, uint32_t length, const IPMI_MsgHeader &header, int want_channel,
                  Piece &piece);

// The channel the responses must name: the one asked for, or, when the
// request named "this channel", the one the first response named.
int wanted_channel(uint8_t channel, bool first_response, uint8_t first_channel);

// Parses the record data of the whole list into `out`, in the BMC's order.
// A standard record is C0h, the suite ID, one authentication algorithm byte
// (tag 00b in bits 7:6), one or more integrity bytes (tag 01b) and one or
// more confidentiality bytes (tag 10b); the suite keeps the first algorithm
// of each kind. An OEM record (C1h) carries the suite ID, the 3-byte IANA
// enterprise number, then algorithm bytes of the same shape: it is listed
// like a standard suite, with its ID and (OEM) algorithm numbers; the IANA
// number is not kept. Returns 0; RMCPP_ERR_INVALID for a damaged or cut
// list (nothing about it is trusted then: count is 0); RMCPP_ERR_BUFFER when
// the list holds more suites than `out` has room for, with the first ones
// written and counted.
int parse_records(const uint8_t *data, size_t length, RMCPP_ChannelCipherSuites &out);

// Suites `out` has room for: its size after `size` and `count`, at most
// RMCPP_MAX_CIPHER_SUITES; -1 when even `count` does not fit.
int capacity(const RMCPP_ChannelCipherSuites &out);

// The whole decoder over received datagrams: datagrams[i] is the response
// to list index i. Reads until a response brings fewer than 16 bytes of
// records (or list index 3Fh), then parses the list. A datagram that is not
// the awaited response gives RMCPP_ERR_HEADER, too few datagrams
// RMCPP_ERR_INVALID; otherwise as read_response and parse_records.
int decode(const std::vector<std::vector<uint8_t>> &datagrams, uint8_t rs_addr, uint8_t rs_lun, uint8_t rq_addr,
           uint8_t channel, RMCPP_ChannelCipherSuites &out);

// The exchange over a UDP socket already connected to the BMC: each list
// index is sent up to param.retry_count times, each send waiting
// param.timeout_sec for its response; datagrams that are not it are skipped.
// A response that fails its checks ends the exchange with their code, or,
// with `strict_peer`, is dropped and the wait goes on: the refusal is then
// taken when it comes again after a later send, or once the sends run out.
// Returns 0, RMCPP_ERR_RETRY_OVER, or a code of read_response or
// parse_records.
int get_channel_cipher_suites(int socket_fd, const IPMI_SessionParam &param, uint8_t channel, bool strict_peer,
                              RMCPP_ChannelCipherSuites &out);

}  // namespace rmcpp::ciphers
