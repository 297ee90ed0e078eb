// A second companion process for the facade tests.
//
//   companion_peer register NAME INDEX VID PID [cleanup]
//       registers the device through the facade (and, with "cleanup", cleans up again before it
//       exits); prints YES or NO as RegisterAudioDevice answered.
#include <YumoClientSdk/ymMainLoop.h>
#include <YumoClientSdk/ymSdkImplement.h>
#include <cstdio>
#include <cstring>

int main(int argc, char **argv)
{
    if (argc < 6 || std::strcmp(argv[1], "register") != 0) {
        std::fprintf(stderr, "usage: companion_peer register NAME INDEX VID PID [cleanup]\n");
        return 64;
    }
    ymSdkImplement *sdk = ymSdkImplement::SharedInstance();
    bool registered = sdk->RegisterAudioDevice(argv[2], argv[3], std::atoll(argv[4]), std::atoll(argv[5]));
    if (argc > 6 && std::strcmp(argv[6], "cleanup") == 0)
        sdk->CleanupAudioDevices();
    std::printf("%s\n", registered ? "YES" : "NO");
    return 0;
}
