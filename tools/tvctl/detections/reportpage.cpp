#include "tvctl/detections/reportpage.h"

#include "tvctl/console/jsontext.h"

#include <QCryptographicHash>
#include <QFile>

namespace
{
QByteArray part(const QString& name)
{
    QFile file(QStringLiteral(":/tvctl/report/") + name);
    // It is compiled into the program.
    [[maybe_unused]] const bool isOpen = file.open(QIODevice::ReadOnly);
    Q_ASSERT(isOpen);
    return file.readAll();
}

QByteArray sourceOf(const QByteArray& text)
{
    return "'sha256-" + QCryptographicHash::hash(text, QCryptographicHash::Sha256).toBase64() + '\'';
}

/// JSON in which nothing can end the element around it, or a line of script.
QByteArray embedded(const QJsonObject& data)
{
    QByteArray json = JsonText::write(QJsonDocument(data), QJsonDocument::Compact);
    json.replace('<', "\\u003c");
    json.replace('>', "\\u003e");
    json.replace('&', "\\u0026");
    return json;
}
} // namespace

/// Nobody else refers to what is in a static library's resource file, so it would be left out. In no
/// namespace, which the macro demands.
static void takeInResources()
{
    Q_INIT_RESOURCE(report);
}

QByteArray ReportPage::build(const QJsonObject& data)
{
    takeInResources();
    const QByteArray style = part(QStringLiteral("report.css"));
    const QByteArray script = part(QStringLiteral("report.js"));
    QByteArray page = part(QStringLiteral("report.html"));
    page.replace("@POLICY@", "default-src 'none'; style-src " + sourceOf(style) + "; script-src " +
                                 sourceOf(script) + "; base-uri 'none'; form-action 'none'");
    page.replace("@STYLE@", style);
    page.replace("@SCRIPT@", script);
    // Last: what it holds is not looked through any more.
    page.replace("@DATA@", embedded(data));
    return page;
}
