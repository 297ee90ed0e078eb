#include "FuzzSupport.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace fuzzsupport {

void useTemporaryHome()
{
    static bool done = false;
    if (done)
        return;
    char folder[] = "/tmp/ymfuzz-XXXXXX";
    if (mkdtemp(folder))
        setenv("HOME", folder, 1);
    unsetenv("DBUS_SESSION_BUS_ADDRESS");  // no bus: the notification transport stays quiet
    done = true;
}

void silenceLog()
{
    int devNull = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (devNull >= 0) {
        dup2(devNull, STDERR_FILENO);
        close(devNull);
    }
}

}  // namespace fuzzsupport
