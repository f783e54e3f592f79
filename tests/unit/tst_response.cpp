// Response: the error catalogue, the status names and the bytes of a rendered response.
#include "response/httpstatus.h"
#include "response/response.h"
#include "support/httpreply.h"
#include "support/logcapture.h"

#include <QtTest>

class TestResponse : public QObject
{
    Q_OBJECT

private slots:
    void statusNames_data();
    void statusNames();
    void catalogue_data();
    void catalogue();
    void errorListFollowsDeclarationOrder();
    void errorBodies_data();
    void errorBodies();
    void dataAfterErrorKeepsStatus();
    void renderedBytes();
    void invalidUtf8KeepsFaultyBody();
    void renderLogLine_data();
    void renderLogLine();
};

void TestResponse::statusNames_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("name");

    int count = 0;
    for (const QByteArray &row : testData(QStringLiteral("response/status-names.txt")).trimmed().split('\n')) {
        const int blank = row.indexOf(' ');
        QTest::newRow(row.constData()) << row.left(blank).toInt() << QString::fromUtf8(row.mid(blank + 1));
        ++count;
    }
    QCOMPARE(count, 63);
    // Statuses outside the table take the name of their class.
    QTest::newRow("199 class") << 199 << "Information";
    QTest::newRow("250 class") << 250 << "Success";
    QTest::newRow("306 class") << 306 << "Redirect";
    QTest::newRow("419 class") << 419 << "Client Error";
    QTest::newRow("598 class") << 598 << "Server Error";
    QTest::newRow("600") << 600 << "Unknown";
    QTest::newRow("99") << 99 << "Unknown";
}

void TestResponse::statusNames()
{
    QFETCH(int, status);
    QFETCH(QString, name);
    QCOMPARE(httpStatusName(status), name);
}

void TestResponse::catalogue_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");

    for (const QByteArray &row : testData(QStringLiteral("response/catalogue.tsv")).trimmed().split('\n')) {
        const QList<QByteArray> cells = row.split('\t');
        QTest::newRow(cells.at(2).constData()) << cells.at(0).toUInt() << cells.at(1).toInt()
                                               << QString::fromUtf8(cells.at(3));
    }
    QTest::newRow("unknown 0") << 0u << 400 << "Unknown error";
    QTest::newRow("unknown 100505") << 100505u << 400 << "Unknown error";
}

void TestResponse::catalogue()
{
    QFETCH(uint, code);
    QFETCH(int, status);
    QFETCH(QString, message);

    // setError without an argument keeps the markers; the body carries the message.
    Response response{RequestHeader()};
    response.setError(code);
    QCOMPARE(response.errorCode(), int(code));
    QCOMPARE(int(response.status()), status);
    QCOMPARE(response.data().toMap(), (QVariantMap{{"code", code}, {"message", message}}));
}

void TestResponse::errorListFollowsDeclarationOrder()
{
    QVariantList expected;
    for (const QByteArray &row : testData(QStringLiteral("response/catalogue.tsv")).trimmed().split('\n')) {
        const QList<QByteArray> cells = row.split('\t');
        expected << QVariantMap{{"code", cells.at(0).toInt()}, {"statusCode", cells.at(1).toInt()},
                                {"message", QString::fromUtf8(cells.at(3))},
                                {"statusName", httpStatusName(cells.at(1).toInt())}};
    }
    QCOMPARE(expected.size(), 28);
    // Through JSON, as the GET response-errors body carries it.
    QCOMPARE(QJsonDocument::fromVariant(Response::errorList()), QJsonDocument::fromVariant(expected));
}

void TestResponse::errorBodies_data()
{
    QTest::addColumn<bool>("develEnv");
    QTest::addColumn<int>("form");  // 0: setErrorBody, 1-3: setError with 0-2 arguments
    QTest::addColumn<uint>("code");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");  // null: no "message" key

    const uint sql = Response::RE_SQLError;
    const QString dbText = QStringLiteral("Table 'x.term' doesn't exist");
    QTest::newRow("sql error hidden") << false << 2 << sql << QStringList{dbText} << 500 << "Database error";
    QTest::newRow("sql error shown") << true << 2 << sql << QStringList{dbText} << 500
                                     << "SQL Error: 'Table 'x.term' doesn't exist'";
    QTest::newRow("sql error without argument") << false << 1 << sql << QStringList() << 500 << "SQL Error: '%1'";
    QTest::newRow("one argument") << false << 2 << uint(Response::RE_BadMethod) << QStringList{"PUT"} << 405
                                  << "Method 'PUT' is not allowed!";
    QTest::newRow("two arguments, percent in the first")
        << false << 3 << uint(Response::RE_JsonParseError) << QStringList{"bad %2 value", "17"} << 400
        << "JSON parse error 'bad %2 value' at 17";
    // Codes 500-599 hide their text outside the development environment.
    QTest::newRow("code 500 hidden") << false << 0 << 500u << QStringList{"photo decode failed", "400"} << 400
                                     << QString();
    QTest::newRow("code 500 shown") << true << 0 << 500u << QStringList{"photo decode failed", "400"} << 400
                                    << "photo decode failed";
    QTest::newRow("code 599 hidden") << false << 0 << 599u << QStringList{"x", "500"} << 500 << QString();
    QTest::newRow("code 600 shown") << false << 0 << 600u << QStringList{"x", "500"} << 500 << "x";
    QTest::newRow("code 499 shown") << false << 0 << 499u << QStringList{"x", "500"} << 500 << "x";
    // A status outside 100-599 is ignored.
    QTest::newRow("status 600") << false << 0 << 4242u << QStringList{"odd", "600"} << 200 << "odd";
    QTest::newRow("status 99") << false << 0 << 4242u << QStringList{"odd", "99"} << 200 << "odd";
    QTest::newRow("status 599") << false << 0 << 4242u << QStringList{"odd", "599"} << 599 << "odd";
}

void TestResponse::errorBodies()
{
    QFETCH(bool, develEnv);
    QFETCH(int, form);
    QFETCH(uint, code);
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QFETCH(QString, message);

    RequestHeader header;
    header.develEnv = develEnv;
    Response response(header);
    response.setData(QVariantMap{{"earlier", true}});
    switch (form) {
    case 0: response.setErrorBody(args.at(0), code, quint16(args.at(1).toUInt())); break;
    case 1: response.setError(code); break;
    case 2: response.setError(code, args.at(0)); break;
    case 3: response.setError(code, args.at(0), args.at(1)); break;
    }
    QVariantMap expected{{"code", code}};
    if (!message.isNull())
        expected.insert(QStringLiteral("message"), message);
    const HttpReply reply = HttpReply::parse(response.renderResponse(true));
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.json().toVariant().toMap(), expected);
    QCOMPARE(response.errorCode(), int(code));
}

void TestResponse::dataAfterErrorKeepsStatus()
{
    Response response{RequestHeader()};
    response.setError(Response::RE_NoPerson);
    response.setData(QVariantMap{{"uid", 7}});
    response.setData(QVariant());  // an invalid value keeps the body
    QCOMPARE(int(response.status()), 404);
    QCOMPARE(response.errorCode(), int(Response::RE_NoPerson));
    QCOMPARE(HttpReply::parse(response.renderResponse(true)).json().toVariant().toMap(), (QVariantMap{{"uid", 7}}));
}

void TestResponse::renderedBytes()
{
    Response fresh{RequestHeader()};
    COMPARE_EXPECTED(maskTms(fresh.renderResponse(true)), QStringLiteral("response/fresh.http"));

    // Extra headers in key order (COUNT before TMS and VER), a '%' and non-ASCII text kept,
    // Content-Length in bytes.
    Response response{RequestHeader()};
    response.setHeader(QStringLiteral("X-WEBAPI-VER"), QStringLiteral("2.4.1"));
    response.setHeader(QStringLiteral("X-WEBAPI-COUNT"), 2);
    response.setStatus(208);
    response.setData(QVariantList{QVariantMap{{"name", QStringLiteral("Příliš žluťoučký %1 %2")}, {"uid", 1}},
                                  QVariantMap{{"name", QStringLiteral("100%")}, {"uid", 2}}});
    const QByteArray raw = response.renderResponse(true);
    COMPARE_EXPECTED(maskTms(raw), QStringLiteral("response/list.http"));
    // The stamp is the time of rendering.
    const qint64 tms = HttpReply::parse(raw).header("X-WEBAPI-TMS").toLongLong();
    QVERIFY(qAbs(tms - QDateTime::currentSecsSinceEpoch()) <= 1);
    // Without the head: the body alone.
    QCOMPARE(response.renderResponse(false), raw.mid(raw.indexOf("\r\n\r\n") + 4));
}

void TestResponse::invalidUtf8KeepsFaultyBody()
{
    // QJsonDocument always writes valid UTF-8, so the faulty bytes come from a subclass.
    class FaultyResponse : public Response
    {
    public:
        using Response::Response;

    protected:
        QByteArray toJson() const override { return QByteArrayLiteral("{\"n\": \"\xff\"}\n"); }
    };
    FaultyResponse response{RequestHeader()};
    LogCapture log;
    COMPARE_EXPECTED(maskTms(response.renderResponse(true)), QStringLiteral("response/invalid-utf8.http"));
    QCOMPARE(response.errorCode(), int(Response::RE_BadJsonEncoding));
    QCOMPARE(log.lines(QtWarningMsg),
             QStringList{QStringLiteral("Response::renderResponse: Not a valid UTF-8 sequence, invalid chars: 1")});
}

void TestResponse::renderLogLine_data()
{
    QTest::addColumn<int>("debugLevel");
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("line");  // empty: no line

    QTest::newRow("level 0, error") << 0 << uint(Response::RE_Unauthorized) << QString();
    QTest::newRow("level 1, no error") << 1 << 0u << QString();
    QTest::newRow("level 1, error cut to 16 bits") << 1 << uint(Response::RE_Unauthorized)
                                                   << "Response::renderResponse(1) err: -31071";
    QTest::newRow("level 2, no error") << 2 << 0u << "Response::renderResponse(1) err: 0";
}

void TestResponse::renderLogLine()
{
    QFETCH(int, debugLevel);
    QFETCH(uint, code);
    QFETCH(QString, line);

    RequestHeader header;
    header.debugLevel = quint8(debugLevel);
    Response response(header);
    if (code)
        response.setErrorBody(QStringLiteral("x"), code, 400);
    LogCapture log;
    response.renderResponse(true);
    const QStringList lines = log.linesStartingWith(QtDebugMsg, QStringLiteral("Response::renderResponse("));
    QCOMPARE(lines, line.isEmpty() ? QStringList() : QStringList{line});
}

QTEST_GUILESS_MAIN(TestResponse)
#include "tst_response.moc"
