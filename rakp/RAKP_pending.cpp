// Establishment phases after the presence ping that this build does not
// carry yet. Each one fails cleanly, so an establishment stops right after
// the ping with the socket closed and nothing allocated.
#include "rmcpp.h"

namespace {
int not_built(const char *phase)
{
    lib_log(3, "%s is not available in this build.\n", phase);
    return 3;
}
}  // namespace

extern "C" {

RMCPP_API uint32_t MakeSessionID(void) { return 0x00010000u; }
RMCPP_API int GetAuthCapa_v15(RMCPp_SetupState *, uint8_t *, uint8_t)
{
    return not_built("Get Channel Authentication Capabilities");
}
RMCPP_API int Check_IPMIv15_NonAuth(RMCPp_SetupState *, const uint8_t *, uint32_t *, const IPMI_MsgHeader *,
                                    uint32_t *)
{
    return not_built("Get Channel Authentication Capabilities");
}
RMCPP_API int OpenSession_Req_Resp(RMCPp_SetupState *, uint8_t, uint8_t *, uint8_t, uint8_t *)
{
    return not_built("Open Session");
}
RMCPP_API int Check_OpenSessResponse(RMCPp_SetupState *, const uint8_t *, uint32_t, uint8_t, uint32_t *)
{
    return not_built("Open Session");
}
RMCPP_API int RAKPMessage1_2(RMCPp_SetupState *, const uint8_t *, uint8_t, uint8_t, uint8_t *, uint8_t *)
{
    return not_built("RAKP Message 1 & 2");
}
RMCPP_API int Check_RAKPMessage2(RMCPp_SetupState *, const uint8_t *, uint32_t, uint8_t, uint32_t *, uint8_t *)
{
    return not_built("RAKP Message 1 & 2");
}
RMCPP_API int RAKPMessage3_4(RMCPp_SetupState *, const uint8_t *, uint8_t, uint8_t, const uint8_t *, uint8_t *,
                             uint8_t)
{
    return not_built("RAKP Message 3 & 4");
}
RMCPP_API int Check_RAKPMessage4(RMCPp_SetupState *, const uint8_t *, uint32_t, uint8_t, uint32_t *, uint8_t *)
{
    return not_built("RAKP Message 3 & 4");
}
RMCPP_API int MakeRandomNumber(uint8_t *) { return not_built("Random number generation"); }
RMCPP_API int MakeSIK(RMCPp_SetupState *, uint8_t, const uint8_t *, const uint8_t *)
{
    return not_built("SIK generation");
}
RMCPP_API int MakeConfidentialityKey(RMCPp_SetupState *) { return not_built("Cipher key generation"); }

}  // extern "C"
