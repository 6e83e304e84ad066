// Checks of received RMCP+ datagrams.
#include "rmcpp.h"
#include "wire.h"

extern "C" {

// Every IPMI datagram opens with RMCP version 6, a reserved zero, sequence
// number 0xFF (no acknowledge) and class 7 (IPMI).
RMCPP_API int Check_RMCPHead(const uint8_t *packet, uint32_t *length, uint32_t *header_length)
{
    if (*length < 4) {
        lib_log(1, "Received Unexpected Packet.(R_H length)\n");
        return 1;
    }
    rmcpp::wire::Reader r(packet, *length);
    if (r.u8() != 0x06) {
        lib_log(1, "Received Unexpected Packet.(R_H Version)\n");
        return 1;
    }
    if (r.u8() != 0x00) {
        lib_log(1, "Received Unexpected Packet.(R_H Reserved)\n");
        return 1;
    }
    if (r.u8() != 0xFF) {
        lib_log(1, "Received Unexpected Packet.(R_H Seq)\n");
        return 1;
    }
    if (r.u8() != 0x07) {
        lib_log(1, "Received Unexpected Packet.(R_H Class)\n");
        return 1;
    }
    *header_length = 4;
    *length -= 4;
    return 0;
}

}  // extern "C"
