// Runs checkAppCodeSign on its argument and prints YES or NO; the signature test starts it in a
// private mount namespace where /usr/bin/codesign is a stand-in.
#include <YumoClientSdk/ymAppHelper.h>
#include <cstdio>

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: codesign_peer PATH\n");
        return 64;
    }
    std::printf("%s\n", ymAppHelper::sharedInstance()->checkAppCodeSign(std::string(argv[1])) ? "YES" : "NO");
    return 0;
}
