// A second companion process for the facade tests.
//
//   companion_peer bulk-register PREFIX COUNT
//       registers devices PREFIX-0 .. PREFIX-(COUNT-1) one after another; prints how many it got YES for.
//   companion_peer bulk-cleanup PREFIX COUNT
//       takes those devices as its own and cleans up.
//   companion_peer held-until-exit NAME INDEX
//       registers the device on a facade of its own kept in a static, and just returns: the
//       facade is released, and cleans up, while the process exits.
#include <YumoClientSdk/ymSdkImplement.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char **argv)
{
    if (argc == 4 && (std::strcmp(argv[1], "bulk-register") == 0 || std::strcmp(argv[1], "bulk-cleanup") == 0)) {
        ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
        int count = std::atoi(argv[3]);
        int registered = 0;
        for (int i = 0; i < count; ++i) {
            std::string name = std::string(argv[2]) + "-" + std::to_string(i);
            if (argv[1][5] == 'r')
                registered += sdk->RegisterAudioDevice(name, std::to_string(i), i, std::to_string(i)) ? 1 : 0;
            else
                sdk->addToDeviceArray(name, std::to_string(i));
        }
        if (argv[1][5] == 'c')
            sdk->CleanupAudioDevices();
        std::printf("%d\n", registered);
        return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "held-until-exit") == 0) {
        static std::shared_ptr<ymSdkImplement> facade = ymSdkImplement::create();
        std::printf("%s\n", facade->RegisterAudioDevice(argv[2], argv[3], 1, 1) ? "YES" : "NO");
        return 0;
    }
    std::fprintf(stderr, "usage: companion_peer bulk-register|bulk-cleanup PREFIX COUNT | held-until-exit NAME INDEX\n");
    return 64;
}
