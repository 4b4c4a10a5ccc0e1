#pragma once

#include <atomic>
#include <cstddef>
#include <string>

/// Encoded popups on their way from the calling threads to the sending thread; holds a bounded number.
///
/// Without a lock, because a caller may not be held up: who sleeps for a lock, however short it is held,
/// waits on a busy machine until the scheduler comes round.
class PopupInbox
{
public:
    explicit PopupInbox(std::size_t capacity);
    ~PopupInbox();
    PopupInbox(const PopupInbox&) = delete;
    PopupInbox& operator=(const PopupInbox&) = delete;

    /// Any thread. False, and nothing is kept, when the inbox is full.
    bool put(std::string datagram);

    /// One thread only. Takes the popup that has waited longest; false when there is none.
    bool take(std::string& datagram);

private:
    struct Node
    {
        std::string datagram;
        Node* next;
    };

    void order();

    const std::size_t m_capacity;
    std::atomic<std::size_t> m_count{0};
    /// Newest first; owned.
    std::atomic<Node*> m_arrived{nullptr};
    /// Oldest first; owned, the taking thread's own.
    Node* m_ordered = nullptr;
};
