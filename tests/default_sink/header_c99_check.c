/* The public header compiles as strict C99 and links against the library. */
#include "rmcpp.h"

int main(void)
{
    IPMI_MsgHeader header = {6, 0x81, 1, 0, 1, 7, 0x20, 0};
    uint8_t message[16];
    int length = 0;
    if (MakeIPMIRequest(&header, 0, 0, message, (int)sizeof message, &length) != RMCPP_OK) return 1;
    return length == 7 ? 0 : 1;
}
