#include "platform/tvcore/storetext.h"

#include "common/filename.h"

QByteArray StoreText::toBound(const QString& text)
{
    return text.isEmpty() ? QByteArrayLiteral("") : FileName::toBytes(text);
}

QString StoreText::fromFetched(const QByteArray& bytes)
{
    return FileName::toText(bytes);
}
