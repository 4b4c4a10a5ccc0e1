#include "platform/tvnotify/popupmarkup.h"

#include <QXmlStreamReader>
#include <QtTest>

#include <random>

#include <dbus/dbus.h>

class TestPopupMarkup : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void translates_data();
    void translates();
    void cutsALongBody();
    void cutsInsideBold();
    void keepsABodyOfFullLength();
    void cutsALongTitle();
    void titleIsPlainText();
    void isAlwaysWellFormed();
    void isFastForALongMessage();
};

namespace
{

QString text(std::initializer_list<ushort> units)
{
    QString out;
    for (const ushort unit : units) {
        out += QChar(unit);
    }
    return out;
}

/// As a notification server reads a body: an XML fragment.
bool isWellFormed(const QString& markup)
{
    QXmlStreamReader reader(QStringLiteral("<body>") + markup + QStringLiteral("</body>"));
    while (!reader.atEnd()) {
        if (reader.readNext() == QXmlStreamReader::StartElement && reader.name() != QLatin1String("b") &&
            reader.name() != QLatin1String("body")) {
            return false;
        }
    }
    return !reader.hasError();
}

bool isAcceptedByABus(const QString& value)
{
    const QByteArray bytes = value.toUtf8();
    return !bytes.contains('\0') && ::dbus_validate_utf8(bytes.constData(), nullptr);
}

QString detection(const QString& name, const QString& path)
{
    return QStringLiteral("<b>File Name:</b> %1<br/><b>Virus Name:</b> %2<br/><b>Clean Status:</b> %3<br/>"
                          "<b>File Path:</b> %4")
        .arg(name)
        .arg(QStringLiteral("Eicar"))
        .arg(QStringLiteral("Cleaned"))
        .arg(path);
}

QString shownDetection(const QString& name, const QString& path)
{
    return QStringLiteral("<b>File Name:</b> ") + name +
           QStringLiteral("\n<b>Virus Name:</b> Eicar\n<b>Clean Status:</b> Cleaned\n<b>File Path:</b> ") +
           path;
}

} // namespace

void TestPopupMarkup::translates_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("markup");
    const auto row = [](const char* name, const QString& message, const QString& markup) {
        QTest::newRow(name) << message << markup;
    };
    const auto named = [&](const char* title, const QString& name, const QString& shown) {
        row(title, detection(name, QStringLiteral("/p")), shownDetection(shown, QStringLiteral("/p")));
    };
    const auto located = [&](const char* title, const QString& path, const QString& shown) {
        row(title, detection(QStringLiteral("n"), path), shownDetection(QStringLiteral("n"), shown));
    };

    row("empty", QString(), QString());
    named("an ordinary detection", QStringLiteral("a b.txt"), QStringLiteral("a b.txt"));
    named("another tag", QStringLiteral("<img src=x>"), QStringLiteral("&lt;img src=x&gt;"));
    named("a link", QStringLiteral("<a href=\"x\">"), QStringLiteral("&lt;a href=&quot;x&quot;&gt;"));
    named("an entity", QStringLiteral("a&amp;b&lt;"), QStringLiteral("a&amp;amp;b&amp;lt;"));
    named("lone characters", QStringLiteral("<>&\""), QStringLiteral("&lt;&gt;&amp;&quot;"));
    named("bold without end", QStringLiteral("a<b>c"), QStringLiteral("a&lt;b&gt;c"));
    named("bold without end, twice", QStringLiteral("<b><b>"), QStringLiteral("&lt;b&gt;&lt;b&gt;"));
    named("upper case", QStringLiteral("<B>x"), QStringLiteral("&lt;B&gt;x"));
    named("half a tag", QStringLiteral("<b"), QStringLiteral("&lt;b"));
    named("a tag with space", QStringLiteral("<b >"), QStringLiteral("&lt;b &gt;"));
    named("line break", QStringLiteral("a\nb\r"), QString::fromUtf8("a\u240Ab\u240D"));
    named("bell, tab, delete", QStringLiteral("\a\t\x7f"), QString::fromUtf8("\u2407\u2409\u2421"));
    named("NUL", text({'a', 0, 'b'}), text({'a', 0x2400, 'b'}));
    named("C1 control", text({0x85, 0x9F}), text({0xFFFD, 0xFFFD}));
    named("other line ends", text({0x2028, 0x2029}), text({0xFFFD, 0xFFFD}));
    named("turned reading direction", text({'a', 0x202E, 'b', 0x2066}), text({'a', 0xFFFD, 'b', 0xFFFD}));
    named("lone surrogates", text({0xD800, 'a', 0xDC00}), text({0xFFFD, 'a', 0xFFFD}));
    named("surrogates the wrong way round", text({0xDC00, 0xD800}), text({0xFFFD, 0xFFFD}));
    named("noncharacters", text({0xFFFE, 0xFFFF, 0xFDD0}), text({0xFFFD, 0xFFFD, 0xFFFD}));
    named("noncharacter of another plane", text({0xD83F, 0xDFFF}), text({0xFFFD}));
    named("beyond the first plane", QString::fromUtf8("\U0001F600"), QString::fromUtf8("\U0001F600"));
    named("letters of the world", QString::fromUtf8("é ش 中"), QString::fromUtf8("é ش 中"));
    located("bold in a path", QStringLiteral("/<b>x</b>/y"), QStringLiteral("/&lt;b&gt;x&lt;/b&gt;/y"));
    located("end of bold without start", QStringLiteral("/</b>/y"), QStringLiteral("/&lt;/b&gt;/y"));
    located("nested bold", QStringLiteral("/<b><b>x</b></b>"),
            QStringLiteral("/&lt;b&gt;&lt;b&gt;x&lt;/b&gt;&lt;/b&gt;"));
    located("line break in a path", QStringLiteral("/<br/>/y"), QStringLiteral("/&lt;br/&gt;/y"));
    located("a line of the message in a path", QStringLiteral("/home/<br/><b>Clean Status:</b> Cleaned"),
            QStringLiteral("/home/&lt;br/&gt;&lt;b&gt;Clean Status:&lt;/b&gt; Cleaned"));
    // What is filled into the name leads the path there, and takes the lines after it in.
    row("a name that takes the path in",
        detection(QStringLiteral("%4"), QStringLiteral("/<br/><b>Virus Name:</b> None")),
        QStringLiteral(
            "<b>File Name:</b> /&lt;br/&gt;&lt;b&gt;Virus Name:&lt;/b&gt; None&lt;br/&gt;"
            "&lt;b&gt;Virus Name:&lt;/b&gt; Eicar&lt;br/&gt;&lt;b&gt;Clean Status:&lt;/b&gt; Cleaned"
            "&lt;br/&gt;&lt;b&gt;File Path:&lt;/b&gt; /&lt;br/&gt;&lt;b&gt;Virus Name:&lt;/b&gt; None"));
    row("bold that a path would end", QStringLiteral("<b>a/</b>b</b>"),
        QStringLiteral("&lt;b&gt;a/&lt;/b&gt;b&lt;/b&gt;"));
    row("bold over a line break", QStringLiteral("<b>a<br/>b</b>"),
        QStringLiteral("&lt;b&gt;a\nb&lt;/b&gt;"));
    row("bold to the end", QStringLiteral("<b>a"), QStringLiteral("&lt;b&gt;a"));
    row("empty bold", QStringLiteral("<b></b>"), QStringLiteral("<b></b>"));
    row("other ways to write a line break", QStringLiteral("<br><br />"),
        QStringLiteral("&lt;br&gt;&lt;br /&gt;"));
}

void TestPopupMarkup::translates()
{
    QFETCH(QString, message);
    QFETCH(QString, markup);
    QCOMPARE(popupMarkup(message), markup);
    QVERIFY(isWellFormed(markup));
    QVERIFY(isAcceptedByABus(markup));
}

void TestPopupMarkup::cutsALongBody()
{
    const QString shown = popupMarkup(QString(100000, QLatin1Char('<')));
    QString expected;
    for (int i = 0; i < maximumPopupBody; ++i) {
        expected += QLatin1String("&lt;");
    }
    QCOMPARE(shown, expected + QChar(0x2026));
}

void TestPopupMarkup::cutsInsideBold()
{
    const QString shown =
        popupMarkup(QStringLiteral("<b>") + QString(5000, QLatin1Char('x')) + QStringLiteral("</b>"));
    QVERIFY(shown.startsWith(QLatin1String("<b>xxx")));
    QVERIFY(shown.endsWith(QStringLiteral("x\u2026</b>")));
}

void TestPopupMarkup::keepsABodyOfFullLength()
{
    const QString message(maximumPopupBody, QLatin1Char('x'));
    QCOMPARE(popupMarkup(message), message);
}

void TestPopupMarkup::cutsALongTitle()
{
    const QString title(maximumPopupTitle, QLatin1Char('x'));
    QCOMPARE(popupText(title), title);
    QCOMPARE(popupText(title + QLatin1Char('y')), title + QChar(0x2026));
}

void TestPopupMarkup::titleIsPlainText()
{
    QCOMPARE(popupText(QStringLiteral("<b>a</b> &amp; b")), QStringLiteral("<b>a</b> &amp; b"));
    QCOMPARE(popupText(text({'a', '\n', 0, 0xD800, 0xFFFF})), text({'a', 0x240A, 0x2400, 0xFFFD, 0xFFFD}));
}

void TestPopupMarkup::isAlwaysWellFormed()
{
    const QString pieces[] = {QStringLiteral("<b>"),
                              QStringLiteral("</b>"),
                              QStringLiteral("<br/>"),
                              QStringLiteral("<"),
                              QStringLiteral(">"),
                              QStringLiteral("&"),
                              QStringLiteral("amp;"),
                              QStringLiteral("b"),
                              QStringLiteral("]]>"),
                              QStringLiteral("\""),
                              text({0xD800}),
                              text({0xDFFF}),
                              text({0}),
                              text({0xFFFE}),
                              text({0xFEFF})};
    std::mt19937 random(1);
    for (int round = 0; round < 20000; ++round) {
        QString message;
        for (std::size_t i = random() % 20; i > 0; --i) {
            message += random() % 8 == 0 ? text({static_cast<ushort>(random())})
                                         : pieces[random() % std::size(pieces)];
        }
        QVERIFY2(isWellFormed(popupMarkup(message)), qPrintable(popupMarkup(message)));
        QVERIFY(isAcceptedByABus(popupMarkup(message)));
        QVERIFY(isAcceptedByABus(popupText(message)));
    }
}

void TestPopupMarkup::isFastForALongMessage()
{
    const QString tags = QStringLiteral("<b>").repeated(1000000);
    const QString lone = QStringLiteral("<b>") + QString(3000000, QLatin1Char('<'));
    QElapsedTimer timer;
    timer.start();
    popupMarkup(tags);
    popupMarkup(lone);
    // Linear work takes a fraction of a second even in a debug build; a square of it would take hours.
    QVERIFY2(timer.elapsed() < 10000, qPrintable(QString::number(timer.elapsed())));
}

QTEST_APPLESS_MAIN(TestPopupMarkup)
#include "tst_popupmarkup.moc"
