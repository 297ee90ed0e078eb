// A process on the session bus for the notification tests.
//
//   notification_peer echo LISTEN REPLY   answers every LISTEN notification with a REPLY
//                                          notification carrying the same user information;
//                                          prints "ready" once observing, then a line per echo
//   notification_peer post NAME [KEY VALUE]...   posts one notification and exits
#include <YumoClientSdk/ymMainLoop.h>
#include <cstdio>
#include <string>

#include "platform/ymNotificationCenter.h"

int main(int argc, char **argv)
{
    if (argc >= 4 && std::string(argv[1]) == "echo") {
        std::string reply = argv[3];
        ymNotificationCenter &center = ymNotificationCenter::defaultCenter();
        center.addObserver(argv[2], [reply](const std::string &name, const ymNotificationCenter::UserInfo &userInfo) {
            ymNotificationCenter::defaultCenter().post(reply, userInfo);
            std::printf("echoed %s with %zu keys\n", name.c_str(), userInfo.size());
            std::fflush(stdout);
        });
        std::printf(center.isConnected() ? "ready\n" : "no bus\n");
        std::fflush(stdout);
        ymMainLoop::shared().runFor(std::chrono::seconds(60));
        return 0;
    }
    if (argc >= 3 && std::string(argv[1]) == "post") {
        ymNotificationCenter::UserInfo userInfo;
        for (int i = 3; i + 1 < argc; i += 2)
            userInfo[argv[i]] = argv[i + 1];
        ymNotificationCenter::defaultCenter().post(argv[2], userInfo);
        return 0;
    }
    std::fprintf(stderr, "usage: notification_peer echo LISTEN REPLY | post NAME [KEY VALUE]...\n");
    return 64;
}
