#include "common/abandonablework.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace
{
struct State
{
    std::mutex mutex;
    std::condition_variable changed;
    int running = 0;
    std::atomic<bool> awaited = false;
    bool cancelled = false;
};

State& state()
{
    // Never destroyed: a thread that is abandoned waits for it while the process ends.
    static State* const state = new State;
    return *state;
}
} // namespace

AbandonableWork::AbandonableWork()
{
    State& state = ::state();
    std::unique_lock<std::mutex> lock(state.mutex);
    ++state.running;
    if (state.awaited) {
        state.changed.notify_all();
        // Short work would be over before anybody sees that it began.
        state.changed.wait(lock, [&state] { return !state.awaited; });
    }
}

AbandonableWork::~AbandonableWork()
{
    State& state = ::state();
    const std::lock_guard<std::mutex> lock(state.mutex);
    --state.running;
}

bool AbandonableWork::abandon()
{
    State& state = ::state();
    std::unique_lock<std::mutex> lock(state.mutex);
    state.awaited = true;
    state.changed.wait(lock, [&state] { return state.cancelled || state.running > 0; });
    if (!state.cancelled) {
        // Kept for good: no work ends any more.
        lock.release();
        return true;
    }
    state.cancelled = false;
    state.awaited = false;
    state.changed.notify_all();
    return false;
}

bool AbandonableWork::isAwaited()
{
    return state().awaited;
}

void AbandonableWork::cancel()
{
    State& state = ::state();
    const std::lock_guard<std::mutex> lock(state.mutex);
    state.cancelled = true;
    state.changed.notify_all();
}
