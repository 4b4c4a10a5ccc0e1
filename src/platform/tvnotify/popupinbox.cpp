#include "platform/tvnotify/popupinbox.h"

#include <memory>
#include <utility>

PopupInbox::PopupInbox(std::size_t capacity) : m_capacity(capacity)
{
}

PopupInbox::~PopupInbox()
{
    std::string unread;
    while (take(unread)) {
    }
}

bool PopupInbox::put(std::string datagram)
{
    if (m_count.fetch_add(1) >= m_capacity) {
        m_count.fetch_sub(1);
        return false;
    }
    Node* const node = new Node{std::move(datagram), m_arrived.load(std::memory_order_relaxed)};
    while (!m_arrived.compare_exchange_weak(node->next, node, std::memory_order_release)) {
    }
    return true;
}

bool PopupInbox::take(std::string& datagram)
{
    if (m_ordered == nullptr) {
        order();
    }
    if (m_ordered == nullptr) {
        return false;
    }
    const std::unique_ptr<Node> oldest(m_ordered);
    m_ordered = oldest->next;
    datagram = std::move(oldest->datagram);
    m_count.fetch_sub(1);
    return true;
}

/// Takes over what has arrived, the other way round.
void PopupInbox::order()
{
    Node* arrived = m_arrived.exchange(nullptr, std::memory_order_acquire);
    while (arrived != nullptr) {
        Node* const rest = arrived->next;
        arrived->next = m_ordered;
        m_ordered = arrived;
        arrived = rest;
    }
}
