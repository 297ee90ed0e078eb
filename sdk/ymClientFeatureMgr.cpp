#include <YumoClientSdk/ymAppHelper.h>
#include <YumoClientSdk/ymClientFeatureMgr.h>

#include <cstdint>

#include "common/ymClientWatch.h"
#include "foundation/ymLog.h"
#include "foundation/ymTextRules.h"
#include "sdk/ymClientChecks.h"

namespace {

struct ClientVersion {
    bool readable;
    uint64_t major;
    uint64_t minor;
};

// The slots of the snapshot's prepared lines: each gate's line about the version.
enum Gate : size_t { kSupportedGate = 0, kNewIPCGate = 1 };

// Reads the version as a gate does: the look-up of the install path (its lines), then the version
// (its line). Splits it into its first two components. Each 32-bit reading is widened with its
// sign and then taken as unsigned, so "-1" reads larger than every threshold.
ClientVersion readClientVersion(const ymClientSnapshot &client, Gate gate, const char *function)
{
    ymWriteLookupLines(client);
    const std::string &version = client.version;
    client.laterLine(gate, [&] {
              if (version.empty())
                  return YM_LOG_PREPARE("%s: Error! Cannot read yumo client version.", function);
              return YM_LOG_PREPARE("%s: Yumo Video Client verison is %s", function, version.c_str());
          }).write();
    if (version.empty())
        return {false, 0, 0};
    int64_t major = client.versionMajor;
    int64_t minor = client.versionMinor;
    return {true, static_cast<uint64_t>(major), static_cast<uint64_t>(minor)};
}

}  // namespace

ymClientFeatureMgr *ymClientFeatureMgr::sharedInstance()
{
    static ymClientFeatureMgr *shared = new ymClientFeatureMgr();
    return shared;
}

std::string ymClientFeatureMgr::getYumoClientVersion()
{
    std::shared_ptr<const ymClientSnapshot> client = ymClientWatch::shared().current();
    ymWriteLookupLines(*client);
    return client->version;
}

bool ymClientFeatureMgr::isSupportedYumoClientVersion()
{
    return ymClientChecks::isSupportedYumoClientVersion(*ymClientWatch::shared().current());
}

bool ymClientFeatureMgr::isYumoClientSupportNewIPC()
{
    return ymClientChecks::isYumoClientSupportNewIPC(*ymClientWatch::shared().current());
}

namespace {

bool supportedFor(const ClientVersion &version)
{
    if (!version.readable)
        return false;
    if (version.major > 4)
        return true;
    return version.major == 4 && version.minor >= 2;
}

// The version as the gates read it, without a log line.
ClientVersion silentVersion(const ymClientSnapshot &client)
{
    return {!client.version.empty(), static_cast<uint64_t>(static_cast<int64_t>(client.versionMajor)),
            static_cast<uint64_t>(static_cast<int64_t>(client.versionMinor))};
}

}  // namespace

bool ymClientChecks::isSupportedYumoClientVersion(const ymClientSnapshot &client)
{
    return supportedFor(readClientVersion(client, kSupportedGate, "-[ymClientFeatureMgr isSupportedYumoClientVersion]"));
}

namespace {

bool newIPCFor(const ClientVersion &version)
{
    if (!version.readable)
        return false;
    if (version.major > 5)
        return true;
    return version.major == 5 && version.minor > 5;
}

}  // namespace

bool ymClientChecks::isYumoClientSupportNewIPC(const ymClientSnapshot &client)
{
    return newIPCFor(readClientVersion(client, kNewIPCGate, "-[ymClientFeatureMgr isYumoClientSupportNewIPC]"));
}

ymClientTransport ymClientChecks::transportOf(const ymClientSnapshot &client)
{
    // A command is sent whenever the client runs, whatever its version says.
    if (!client.running)
        return ymClientTransportNone;
    return newIPCFor(silentVersion(client)) ? ymClientTransportSockets : ymClientTransportNotifications;
}
