#include "tvctl/commands/session.h"

#include "tvctl/console/toolerror.h"
#include "tvctl/installation/localadvice.h"
#include "tvctl/installation/storeaccess.h"

namespace
{
QString adviceFor(ServiceConnection::State state, const Installation& installation)
{
    switch (state) {
    case ServiceConnection::State::Refused:
        return QStringLiteral("; ") +
               LocalAdvice(installation).wordedFor(QStringLiteral("systemctl start tvfilemon"));
    case ServiceConnection::State::Barred:
        return QStringLiteral(": sudo tvctl ...");
    case ServiceConnection::State::Untrusted:
        return QStringLiteral("; find that program: ss -ltnp 'sport = :%1'").arg(ServiceConnection::port);
    default:
        return QStringLiteral("; see what is wrong: tvctl doctor");
    }
}
} // namespace

Session::Session(Output& output, const Installation& installation)
    : m_output(output),
      m_installation(installation)
{
    m_service.setSlowNotice(
        [this] { m_output.note(QStringLiteral("waiting for tvfilemon, which is busy ...")); });
    StoreAccess::begin(m_installation);
}

ServiceConnection& Session::service()
{
    if (m_service.state() != ServiceConnection::State::Open && !m_service.open()) {
        throw ToolError(m_service.problem() + adviceFor(m_service.state(), m_installation));
    }
    return m_service;
}

QByteArray Session::ask(const Request& request)
{
    if (!request.isValid()) {
        throw ToolError(request.problem);
    }
    const auto reply = service().ask(request);
    if (!reply) {
        throw ToolError(m_service.problem() + adviceFor(m_service.state(), m_installation));
    }
    return *reply;
}

void Session::requireSettings() const
{
    StoreAccess::requireSettings(m_installation);
}

void Session::requireReports() const
{
    StoreAccess::requireReports(m_installation);
}
