#pragma once

#include "common/uniquefd.h"
#include "tvctl/client/request.h"
#include "tvctl/client/tcptable.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

/// A connection to the service's command port on this machine.
///
/// Blocking; for one thread. The service answers one request after the other and may be busy with others for
/// long, so a wait has no end unless it is given one.
class ServiceConnection
{
public:
    static constexpr quint16 port = 8889;

    enum class State
    {
        Closed,
        Open,
        /// Nobody listens: the service does not run.
        Refused,
        /// Somebody who is to be believed listens, and the connection was refused all the same: the firewall
        /// lets only root and chosen users ask.
        Barred,
        /// The port belongs to somebody who is not to be believed.
        Untrusted,
        /// There was no answer in time.
        TimedOut,
        /// Somebody did not want to wait any longer; see `setInterruption`.
        Interrupted,
        /// Anything else; see `problem`.
        Broken
    };

    /// Connects and registers under the name "tvctl". Without `timeout` it waits as long as it takes. True
    /// when the service is ready for requests.
    bool open(std::optional<std::chrono::milliseconds> timeout = {});

    /// Sends `request`, which is valid, and waits for the reply. Nothing when there was none; the connection
    /// is closed then, since a reply that comes late would be taken for that of the next request.
    std::optional<QByteArray> ask(const Request& request,
                                  std::optional<std::chrono::milliseconds> timeout = {});

    State state() const
    {
        return m_state;
    }
    /// Why it is not open, for people.
    const QString& problem() const
    {
        return m_problem;
    }

    /// What to call, once and never again, when a wait becomes long enough for somebody to wonder.
    void setSlowNotice(std::function<void()> notice)
    {
        m_slowNotice = std::move(notice);
    }

    /// A descriptor that ends a wait when it becomes readable, at once and for good; it has to stay open.
    void setInterruption(int descriptor)
    {
        m_interruption = descriptor;
    }

private:
    using Deadline = std::optional<std::chrono::steady_clock::time_point>;

    static Deadline deadlineAfter(std::optional<std::chrono::milliseconds> timeout);
    bool connectToPort(const Deadline& deadline);
    /// Always false.
    bool failRefused();
    std::optional<QByteArray> exchange(const QByteArray& bytes, const Deadline& deadline);
    bool waitFor(short events, const Deadline& deadline);
    bool checkListener();
    bool checkPeer();
    bool checkOwner(const TcpSocket& socket);
    bool fail(State state, const QString& problem);

    UniqueFd m_socket;
    State m_state = State::Closed;
    QString m_problem;
    std::function<void()> m_slowNotice;
    int m_interruption = -1;
};
