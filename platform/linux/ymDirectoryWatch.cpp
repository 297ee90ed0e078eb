// Folders watched on the I/O thread with inotify (see ymIOLoop::DirectoryWatch).
#include "platform/ymIOLoop.h"
#include "platform/linux/ymEventSource.h"

#include <sys/inotify.h>

namespace {

class DirectorySource : public ymIOLoop::DirectoryWatch, ymIOLoopSourceOf<ymIOLoop::DirectoryWatch::Handler> {
public:
    explicit DirectorySource(Handler handler) : ymIOLoopSourceOf(std::move(handler)) {}
    bool add(const std::string &path)
    {
        const uint32_t mask = IN_CREATE | IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
        return ymIOLoopEvent() && sd_event_add_inotify(ymIOLoopEvent(), &_source, path.c_str(), mask, onEvent, this) >= 0;
    }

private:
    static int onEvent(sd_event_source *, const struct inotify_event *event, void *userdata)
    {
        auto *self = static_cast<DirectorySource *>(userdata);
        if (self->_ended)
            return 0;
        std::shared_ptr<Handler> handler = self->handler();
        if (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) {
            self->_ended = true;
            (*handler)(nullptr);
        } else if (event->len > 0) {
            (*handler)(event->name);
        }
        return 0;
    }
    bool _ended = false;
};

}  // namespace

std::unique_ptr<ymIOLoop::DirectoryWatch> ymIOLoop::DirectoryWatch::watch(const std::string &path, Handler handler)
{
    auto source = std::make_unique<DirectorySource>(std::move(handler));
    return source->add(path) ? std::move(source) : nullptr;
}
