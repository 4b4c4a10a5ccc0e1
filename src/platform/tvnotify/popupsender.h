#pragma once

#include "common/uniquefd.h"
#include "platform/tvnotify/helperprocess.h"
#include "platform/tvnotify/popup.h"
#include "platform/tvnotify/popupinbox.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

/// Hands popups to the helper program, from a bounded queue by a thread of its own.
///
/// The thread starts with the first popup; while the system has none to spare, each further popup tries again
/// and the queue keeps what it can. The helper is started when there is something to send, and again, less
/// and less often, when it dies.
class PopupSender
{
public:
    /// A burst of detections this long is shown whole; beyond it nobody reads popups any more.
    static constexpr std::size_t maximumQueue = 1024;

    /// `helper` is the program's path. `sessionAddress` is the bus that gets the popups; when it is empty,
    /// every logged-in user's bus does.
    PopupSender(std::string helper, std::string sessionAddress);
    /// Gives the queue and the helper up to a second to finish, then ends the helper.
    ~PopupSender();
    PopupSender(const PopupSender&) = delete;
    PopupSender& operator=(const PopupSender&) = delete;

    /// Queues the popup, or drops it when the queue is full. Any thread; does not wait for the helper.
    void send(const Popup& popup);

private:
    using Clock = std::chrono::steady_clock;

    // On the calling threads.
    bool startThread();
    void reportNoThreadOnce(const char* what, const std::error_code& error);
    void wakeThread();

    // On the sending thread.
    void run();
    void sendQueued();
    bool startHelper();
    void dropHelper();
    void waitForWork();
    void readNotice();
    void reportDropsOnce();
    void finish();
    std::optional<Clock::time_point> nextDeadline() const;

    const std::string m_helperProgram;
    const std::string m_sessionAddress;

    UniqueFd m_wakeUp;
    std::thread m_thread;

    /// Guards `m_wakeUp`, `m_thread` and `m_reportedNoThread` until `m_isStarted`.
    std::mutex m_starting;
    std::atomic<bool> m_isStarted{false};
    bool m_reportedNoThread = false;
    PopupInbox m_inbox{maximumQueue};
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_dropped{false};

    // The sending thread's own.
    std::optional<HelperProcess> m_helper;
    /// Taken from the inbox, not accepted by the helper's socket yet; empty for none.
    std::string m_unsent;
    std::optional<Clock::time_point> m_stuckSince;
    Clock::time_point m_helperStarted;
    Clock::time_point m_nextStart;
    Clock::duration m_startDelay;
    std::optional<Clock::time_point> m_stopLimit;
    bool m_reportedDrops = false;
    bool m_reportedStart = false;
};
