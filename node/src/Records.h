// Records: what the SDK hands a companion, copied out of its C records and turned into plain
// JavaScript objects.
#ifndef YUMOCLIENTSDK_NODE_RECORDS_H
#define YUMOCLIENTSDK_NODE_RECORDS_H

#include <napi.h>

#include <optional>
#include <string>
#include <variant>

#include <YumoClientSdk/ymSdkC.h>

namespace yumoclientsdk_node {

// The SDK's records, copied: their texts live only while the SDK's callback runs.
struct PresenceRecord {
    bool error;
    int32_t code;
    std::optional<std::string> text;
    int32_t presenceStatus;
};
struct AudioRecord {
    int32_t command;
    std::optional<std::string> index;
    std::optional<std::string> name;
};
struct ClientStateRecord {
    int32_t change;
    bool installed;
    bool running;
    int32_t transport;
    std::string version;
    std::string path;
};
using Record = std::variant<PresenceRecord, AudioRecord, ClientStateRecord>;

// A record as a plain JavaScript object (field names as index.d.ts gives them).
Napi::Object presenceObject(Napi::Env env, const PresenceRecord &record);
Napi::Object audioObject(Napi::Env env, const AudioRecord &record);
Napi::Object clientStateObject(Napi::Env env, const ClientStateRecord &record);

// The copies of the SDK's records.
PresenceRecord copyOf(const ymPresenceStatus &status);
AudioRecord copyOf(const ymAudioInfo &info);
ClientStateRecord copyOf(const ymClientState &state);

}  // namespace yumoclientsdk_node

#endif
