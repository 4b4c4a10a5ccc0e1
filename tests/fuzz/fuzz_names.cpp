// Names of files as text: no byte is lost on the way into a text and out again, nor in JSON, and what is
// shown to people steers no terminal.

#include "common/filename.h"
#include "fuzz/property.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"

#include <QTextCodec>

#include <cstdint>

namespace
{
bool isUtf8(const QByteArray& bytes)
{
    QTextCodec::ConverterState state;
    QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

void checkText(const QByteArray& name)
{
    const QString text = FileName::toText(name);
    require(FileName::toBytes(text) == name, "each byte comes back");
    const QString shown = FileName::toDisplay(text);
    require(shown.isValidUtf16(), "what is shown is valid text");
    require(isUtf8(name) == (shown == text), "only what is no UTF-8 is shown in another way");
}

void checkPrintable(const QByteArray& name)
{
    const QString shown = printable(FileName::toText(name));
    require(printable(shown) == shown, "what can be printed stays as it is");
    for (const uint codePoint : shown.toUcs4()) {
        const auto category = QChar::category(codePoint);
        require(category != QChar::Other_Control && category != QChar::Other_Format &&
                    category != QChar::Separator_Line && category != QChar::Separator_Paragraph &&
                    category != QChar::Other_Surrogate,
                "nothing that is printed steers a terminal");
    }
}

void checkJson(const QByteArray& name)
{
    const QString key = QStringLiteral("path");
    QJsonObject object;
    JsonText::insertPath(object, key, FileName::toText(name));
    const QByteArray json = JsonText::write(QJsonDocument(object), QJsonDocument::Indented);
    require(isUtf8(json), "a document is UTF-8");
    const QJsonObject read = QJsonDocument::fromJson(json).object();
    const QJsonValue exact = read.value(key + QStringLiteral("_base64"));
    require((exact.isUndefined() ? read.value(key).toString().toUtf8()
                                 : QByteArray::fromBase64(exact.toString().toLatin1())) == name,
            "each byte comes back from JSON");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray name(reinterpret_cast<const char*>(data), static_cast<int>(size));
    checkText(name);
    checkPrintable(name);
    checkJson(name);
    return 0;
}
