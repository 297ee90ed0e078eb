#include "3rdSDKIPC/ipc_socket/ySocketInbound.h"

namespace {

thread_local const std::shared_ptr<ySocketInbound::Budget> *handingFrom = nullptr;

}  // namespace

bool ySocketInbound::Budget::overLimit()
{
    if (_pending.load(std::memory_order_acquire) <= kPendingLimit)
        return false;
    _stopped.store(true, std::memory_order_release);
    // Given back meanwhile, below the mark: nobody would ask the connection to read again.
    if (_pending.load(std::memory_order_acquire) <= kPendingLimit / 2 && _stopped.exchange(false))
        return false;
    return true;
}

void ySocketInbound::Budget::give(size_t bytes) { _pending.fetch_add(bytes, std::memory_order_acq_rel); }

void ySocketInbound::Budget::giveBack(size_t bytes)
{
    size_t left = _pending.fetch_sub(bytes, std::memory_order_acq_rel) - bytes;
    if (left <= kPendingLimit / 2 && _stopped.load(std::memory_order_acquire) && _stopped.exchange(false) && _resume)
        _resume();
}

ySocketInbound::Charge::Charge(std::shared_ptr<Budget> budget, size_t bytes) : _budget(std::move(budget)), _bytes(bytes)
{
    _budget->give(_bytes);
}

ySocketInbound::Charge::~Charge() { _budget->giveBack(_bytes); }

ySocketInbound::Handing::Handing(const std::shared_ptr<Budget> &budget) : _previous(handingFrom) { handingFrom = &budget; }

ySocketInbound::Handing::~Handing() { handingFrom = _previous; }

std::shared_ptr<ySocketInbound::Charge> ySocketInbound::charge(size_t bytes)
{
    if (!handingFrom || !*handingFrom)
        return nullptr;
    return std::make_shared<Charge>(*handingFrom, bytes);
}
