// Values of which the lengths stand in them: the texts in a cell of the store, and a popup on its way to the
// process that shows it. What is cut short or has bytes left over is refused, and what is read is what would
// be written.

#include "fuzz/pieces.h"
#include "fuzz/property.h"
#include "platform/tvcore/packedtexts.h"
#include "platform/tvnotify/popupcodec.h"

#include <algorithm>
#include <limits>

namespace
{
void checkPackedTexts(const QByteArray& packed)
{
    QByteArray pieces;
    const bool isWhole = PackedTexts::split(packed, [&](std::string_view piece) {
        require(piece.data() == packed.constData() + pieces.size(), "texts follow each other without gaps");
        pieces.append(piece.data(), static_cast<int>(piece.size()));
    });
    require(packed.startsWith(pieces) && isWhole == (pieces == packed),
            "all of the value is texts, or it is refused");

    QStringList texts;
    require(PackedTexts::unpack(packed, texts) == isWhole, "both ways of reading agree");
    QByteArray again;
    for (const QString& text : qAsConst(texts)) {
        PackedTexts::append(again, text);
    }
    QStringList read;
    require(PackedTexts::unpack(again, read) && read == texts, "what is packed comes back");
    // A text is wide only where it has to be, so packing makes nothing longer.
    require(again.size() <= pieces.size(), "texts are packed in their shortest form");
}

void checkPopup(std::string_view datagram)
{
    const auto popup = decodePopup(datagram);
    require(!popup || encodePopup(*popup) == datagram, "a popup that is read is what would be sent");
}

void checkSentPopup(Pieces& pieces)
{
    Popup popup;
    popup.appName = pieces.next().toStdString();
    popup.iconPath = pieces.next().toStdString();
    popup.summary = pieces.next().toStdString();
    popup.body = pieces.next().toStdString();
    const QByteArray time = pieces.next();
    if (!time.isEmpty()) {
        // The lowest value stands for none.
        popup.closeAt =
            std::max<std::int64_t>(time.toLongLong(), std::numeric_limits<std::int64_t>::min() + 1);
    }
    const std::string datagram = encodePopup(popup);
    const auto read = decodePopup(datagram);
    require(read && read->appName == popup.appName && read->iconPath == popup.iconPath &&
                read->summary == popup.summary && read->body == popup.body && read->closeAt == popup.closeAt,
            "a popup that is sent is read");
    require(!decodePopup(std::string_view(datagram).substr(0, datagram.size() - 1)) &&
                !decodePopup(datagram + 'x'),
            "a popup of another length is none");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const auto* const bytes = reinterpret_cast<const char*>(data);
    checkPackedTexts(QByteArray(bytes, static_cast<int>(size)));
    checkPopup({bytes, size});
    Pieces pieces(data, size);
    checkSentPopup(pieces);
    return 0;
}
