/* rmcpp-demo: sets up an RMCP+ session with each cipher suite and tells how
 * far the establishment got and why it stopped.
 *
 *   rmcpp-demo ADDRESS [USER [PASSWORD]]
 *
 * The library's log lines are collected by this program's own trace sink
 * and printed under each attempt. */
#include <arpa/inet.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "../common/result_text.h"
#include "rmcpp.h"

/* Replaces the library's default sink: indent each line under the attempt. */
void putKivTrace(int channel, const KivTraceRecord *record, const char *text)
{
    (void)channel;
    (void)record;
    printf("    | %s", text);
    if (text[0] == '\0' || text[strlen(text) - 1] != '\n') putchar('\n');
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s ADDRESS [USER [PASSWORD]]\n", argv[0]);
        return 2;
    }
    struct in_addr address;
    if (inet_aton(argv[1], &address) == 0) {
        fprintf(stderr, "%s: not an IPv4 address: %s\n", argv[0], argv[1]);
        return 2;
    }
    setvbuf(stdout, NULL, _IOLBF, 0);

    int failures = 0;
    for (int suite = 0; suite <= 3; ++suite) {
        IPMI_SessionParam param;
        memset(&param, 0, sizeof param);
        param.bmc_address = ntohl(address.s_addr);
        param.user_name = argc > 2 ? argv[2] : "admin";
        param.user_password = argc > 3 ? argv[3] : "password";
        param.privilege_level = 0;
        param.cipher_suite_id = suite;
        param.slave_address = 0x20;
        param.retry_count = 2;
        param.timeout_sec = 1;

        printf("cipher suite %d: setting up a session with %s\n", suite, argv[1]);
        const int result = IPMI_SetupSession(&param);
        if (result == RMCPP_OK) {
            const RMCPp_Session *s = param.session;
            printf("  established: privilege %u granted, console session 0x%08X, BMC session 0x%08X\n",
                   param.granted_privilege, s->console_session_id, s->bmc_session_id);
            const int closed = IPMI_CloseSession(&param);
            printf("  closed: %d (%s)\n", closed, rmcpp_result_text(closed));
            if (closed != RMCPP_OK) ++failures;
        } else {
            printf("  stopped: %d (%s)\n", result, rmcpp_result_text(result));
            ++failures;
        }
    }
    return failures == 0 ? 0 : 1;
}
