/* Links the installed library and checks one call through each of its areas. */
#include <rmcpp.h>
#include <stdio.h>

int main(void)
{
    IPMI_MsgHeader h = {6, 0x81, 1, 0, 1, 7, 0x20, 0};
    uint8_t message[16];
    int length = 0;
    if (MakeIPMIRequest(&h, NULL, 0, message, (int)sizeof message, &length) != RMCPP_OK || length != 7) return 1;
    KeyRecord key;
    if (makeKey(&key, DIR_ENCRYPT_KEY, 128, "000102030405060708090a0b0c0d0e0f") != 1) return 1;
    IPMI_SessionParam p = {0};
    if (IPMI_SetupSession(&p) != RMCPP_ERR_INVALID) return 1; /* no user checks pass: refused at once */
    puts("ok");
    return 0;
}
