#pragma once

#include "tvctl/client/serviceconnection.h"
#include "tvctl/console/output.h"
#include "tvctl/installation/installation.h"

/// What every command works with. One a run, on the main thread.
class Session
{
public:
    Session(Output& output, const Installation& installation);

    Output& output()
    {
        return m_output;
    }
    const Installation& installation() const
    {
        return m_installation;
    }

    /// The connection to the service, opened on first use. Throws ToolError when it cannot be opened.
    ServiceConnection& service();

    /// The reply to `request`, however long it takes. Throws ToolError when it cannot be sent or there is
    /// none.
    QByteArray ask(const Request& request);

    /// These make sure that the store can be read; see StoreAccess.
    void requireSettings() const;
    void requireReports() const;

private:
    Output& m_output;
    const Installation m_installation;
    ServiceConnection m_service;
};
