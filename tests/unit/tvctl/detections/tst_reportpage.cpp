#include "tvctl/detections/reportpage.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QtTest>

class TestReportPage : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void holdsTheDataUnchanged_data();
    void holdsTheDataUnchanged();
    void allowsNothingButItself();
    void needsNothingElse();

private:
    static QByteArray between(const QByteArray& page, const QByteArray& begin, const QByteArray& end)
    {
        const int from = page.indexOf(begin);
        const int to = page.indexOf(end, from + begin.size());
        return from < 0 || to < 0 ? QByteArray() : page.mid(from + begin.size(), to - from - begin.size());
    }
    static QByteArray dataOf(const QByteArray& page)
    {
        return between(page, "<script id=\"data\" type=\"application/json\">", "</script>");
    }
};

void TestReportPage::holdsTheDataUnchanged_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("end of the element") << "</script><img src=x onerror=alert(1)>";
    QTest::newRow("comment") << "<!--<script>";
    QTest::newRow("entity") << "&lt;&#60;";
    QTest::newRow("line separators") << QStringLiteral("a\u2028b\u2029c");
    QTest::newRow("quotes") << "\"'\\";
    QTest::newRow("line ends") << "a\r\nb";
    QTest::newRow("placeholders") << "@DATA@ @SCRIPT@ @STYLE@ @POLICY@";
}

void TestReportPage::holdsTheDataUnchanged()
{
    QFETCH(QString, text);
    const QByteArray page = ReportPage::build({{QStringLiteral("name"), text}});
    const QByteArray data = dataOf(page);
    for (const char* harmful : {"<", ">", "&", "\xe2\x80\xa8", "\xe2\x80\xa9"}) {
        QVERIFY2(!data.contains(harmful), data.constData());
    }
    QCOMPARE(QJsonDocument::fromJson(data)[QStringLiteral("name")].toString(), text);
    QCOMPARE(page.count("<script"), 2);
    QCOMPARE(page.count("</script"), 2);
}

void TestReportPage::allowsNothingButItself()
{
    const QByteArray page = ReportPage::build({});
    const QByteArray policy = between(page, "<meta http-equiv=\"Content-Security-Policy\" content=\"", "\">");
    const auto hash = [](const QByteArray& text) {
        return QCryptographicHash::hash(text, QCryptographicHash::Sha256).toBase64();
    };
    const QByteArray style = hash(between(page, "<style>", "</style>"));
    const QByteArray script = hash(between(page, "<script>", "</script>"));
    QCOMPARE(policy, "default-src 'none'; style-src 'sha256-" + style + "'; script-src 'sha256-" + script +
                         "'; base-uri 'none'; form-action 'none'");
}

void TestReportPage::needsNothingElse()
{
    QByteArray page = ReportPage::build({});
    // The name of a namespace, which nobody fetches.
    page.replace("http://www.w3.org/2000/svg", "");
    for (const char* outside : {"http:", "https:", "//www", "src=", "@import", "<link", "url(//"}) {
        QVERIFY2(!page.contains(outside), outside);
    }
    for (const char* left : {"@DATA@", "@SCRIPT@", "@STYLE@", "@POLICY@"}) {
        QVERIFY2(!page.contains(left), left);
    }
    QVERIFY2(!page.contains("innerHTML") && !page.contains("insertAdjacentHTML"), "text only");
}

QTEST_GUILESS_MAIN(TestReportPage)
#include "tst_reportpage.moc"
