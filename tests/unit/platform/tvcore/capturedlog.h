#pragma once

#include <QStringList>
#include <QtGlobal>

/// The messages of the logging category "tvcore" while it exists.
class CapturedLog
{
public:
    CapturedLog()
    {
        messages().clear();
        m_previous = qInstallMessageHandler(&CapturedLog::handle);
    }
    ~CapturedLog()
    {
        qInstallMessageHandler(m_previous);
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    static QStringList& messages()
    {
        static QStringList list;
        return list;
    }

private:
    static void handle(QtMsgType type, const QMessageLogContext& context, const QString& message)
    {
        Q_UNUSED(type)
        if (qstrcmp(context.category, "tvcore") == 0) {
            messages().append(message);
        }
    }

    QtMessageHandler m_previous = nullptr;
};
