/* A plain C companion: the C part of the public header compiles as C and links. */
#include <YumoClientSdk/YumoClientSdk.h>
#include <stdio.h>
#include <string.h>

int main(void)
{
    int failures = 0;
    if (strcmp(IPCMsg_CONTENT, "content") != 0) {
        fprintf(stderr, "IPCMsg_CONTENT is %s\n", IPCMsg_CONTENT);
        ++failures;
    }
    if (ymIsFileExist("/") != YES || ymIsFileExist(NULL) != NO || ymIsDirection("/") != YES) {
        fprintf(stderr, "ymIsFileExist or ymIsDirection answered wrongly\n");
        ++failures;
    }
    if (strcmp(ymGetFileVersion(NULL), "") != 0 || ymGetFileSizeFromPath(NULL) != 0) {
        fprintf(stderr, "nil paths do not give the failure values\n");
        ++failures;
    }
    if (strncmp((const char *)YumoClientSdkVersionString, "@(#)PROGRAM:YumoClientSdk", 25) != 0) {
        fprintf(stderr, "the version string is wrong\n");
        ++failures;
    }
    printf("%d passed, %d failed\n", 4 - failures, failures);
    return failures == 0 ? 0 : 1;
}
