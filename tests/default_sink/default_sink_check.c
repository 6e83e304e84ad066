/* Without a host sink of its own, a program's log lines go to standard
 * error, one line per message, exactly as formatted. */
#include <stdio.h>
#include <string.h>

#include "rmcpp.h"

int main(void)
{
    char text[RMCPP_LMSG_TEXT_SIZE];
    lib_log(3, "default sink line %d\n", 1);
    lib_log(1, "Received Unexpected Packet.(R_H Version)\n");
    KivTraceRecord record = {2, 1, 0, 0};
    putKivTrace(0, &record, lmsg_getmsg(20020, text, "CC=0xC1:2018"));
    return 0;
}
