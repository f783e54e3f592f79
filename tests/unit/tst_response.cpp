// A request read and its response written, without a database: the header lines and path
// words, the context they choose, the licence's verdicts, the admin period filter, and the
// bytes of rendered responses with the one check of the error catalogue.
#include "controllers/controllerhelpers.h"
#include "licence/licence.h"
#include "response/httpstatus.h"
#include "response/response.h"
#include "support/httpreply.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestResponse : public QObject
{
    Q_OBJECT

private slots:
    void header_data();
    void header();
    void pathWords();
    void context_data();
    void context();
    void deviceList_data();
    void deviceList();
    void auth_data();
    void auth();
    void periodFilter_data();
    void periodFilter();
    void errorCatalogue();
    void errorBodies_data();
    void errorBodies();
    void renderedBytes();
};

void TestResponse::header_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QString>("expected");  // token|Content-Type|Authorization|TID|AID|valid|devel value
    QTest::newRow("no lines") << QStringList() << "|||||0|";
    QTest::newRow("all headers") << QStringList{"Pragma: token-a1", "Content-Type: application/json",
                                                "Authorization: Bearer k", "X-ZMT-TID: MTIuMzQ1", "X-ZMT-AID: adm-1",
                                                "X-WEBAPI-DEVEL-ENV: zmt-devel"}
                                 << "token-a1|application/json|Bearer k|MTIuMzQ1|adm-1|1|zmt-devel";
    QTest::newRow("names ignore case") << QStringList{"pragma: my token", "authorization: x", "x-zmt-aid: a"}
                                       << "my token||x||a|1|";
    QTest::newRow("token word respects case") << QStringList{"Pragma: TOKEN"} << "|||||0|";
    // A Pragma line without the word runs on through the other kinds, unanchored.
    QTest::newRow("pragma line reaching authorization") << QStringList{"Pragma: Authorization"} << "||Authorization|||1|";
    QTest::newRow("last line wins, colon cuts") << QStringList{"Authorization: a", "Authorization: b:c"} << "||b|||1|";
    QTest::newRow("white space collapsed") << QStringList{"  Authorization:\t Bearer   k1 \r\n"} << "||Bearer k1|||1|";
    QTest::newRow("no colon") << QStringList{"Authorization"} << "|||||1|";
}

void TestResponse::header()
{
    QFETCH(QStringList, lines);
    QFETCH(QString, expected);
    const RequestHeader h = parseRequestHeader(lines);
    const QStringList parts{h.token, h.contentType, h.authorization, h.tid, h.aid, QString::number(h.valid), h.develToken};
    QCOMPARE(parts.join(QLatin1Char('|')), expected);
}

void TestResponse::pathWords()
{
    QCOMPARE(urlPathWords(QUrl("http://h//webapi///person//a%20b?x=1/2")), (QStringList{"person", "a b"}));
    QCOMPARE(urlPathWords(QUrl("http://h/WebApi/a%2FB")), (QStringList{"a", "B"}));
    QCOMPARE(urlPathWords(QUrl("http://h/webapi/")), QStringList());
}

void TestResponse::context_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("withAid");
    QTest::addColumn<int>("context");
    const int terminal = WebApiWorker::TerminalContext;
    const int admin = WebApiWorker::AdminContext;
    QTest::newRow("get people") << "GET" << "/webapi/people" << false << terminal;
    QTest::newRow("get people, aid") << "GET" << "/webapi/people" << true << admin;
    QTest::newRow("get inters, aid") << "GET" << "/webapi/inters" << true << terminal;
    QTest::newRow("post inters, aid") << "POST" << "/webapi/inters" << true << admin;
    QTest::newRow("Info in capitals, aid") << "GET" << "/webapi/Info" << true << admin;
}

void TestResponse::context()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(bool, withAid);
    QFETCH(int, context);
    WebApiWorker worker(QStringLiteral("2.4.1"));
    QStringList headers{QStringLiteral("Pragma: token-x"), QStringLiteral("Authorization: Bearer k")};
    if (withAid)
        headers.append(QStringLiteral("X-ZMT-AID: admin-token"));
    // Without a manager the request ends at the database step, after the context was chosen.
    const QByteArray raw = worker.buildResponse(method, QUrl(QStringLiteral("http://h") + path), headers, QByteArray());
    QCOMPARE(HttpReply::parse(raw).errorCode(), int(Response::RE_BadDatabase));
    QCOMPARE(int(worker.contextType()), context);
}

void TestResponse::deviceList_data()
{
    QTest::addColumn<QString>("list");
    QTest::addColumn<uint>("vid");
    QTest::addColumn<bool>("allowed");
    QTest::newRow("star in a list") << "5, *" << 7u << true;
    QTest::newRow("other number") << "2500" << 2501u << false;
    QTest::newRow("range ends") << "1000-1999,2500" << 1999u << true;
    QTest::newRow("below range") << "1000-1999,2500" << 999u << false;
    QTest::newRow("above range") << "1000-1999,2500" << 2000u << false;
    QTest::newRow("blanks and empty items") << ", 1000 - 1999 ,, 2500 " << 1000u << true;
    QTest::newRow("open range") << "1000-" << 5000u << false;
    QTest::newRow("number with junk") << "12a" << 12u << false;
}

void TestResponse::deviceList()
{
    QFETCH(QString, list);
    QFETCH(uint, vid);
    QFETCH(bool, allowed);
    QCOMPARE(Licence::deviceListAllows(list, vid), allowed);
}

void TestResponse::auth_data()
{
    QTest::addColumn<QString>("authorization");
    QTest::addColumn<int>("outcome");
    QTest::addColumn<QString>("shown");
    const int scheme = Licence::Auth::BadScheme;
    const int key = Licence::Auth::UnknownKey;
    QTest::newRow("basic") << "Basic dXNlcjpwYXNz" << scheme << "Basic";
    // A lone word may be a key without its scheme: never shown.
    QTest::newRow("lone word") << "s3cret-key-value" << scheme << "";
    QTest::newRow("scheme ignores case") << "bEaReR abcdefgh" << key << "abcd...";
    QTest::newRow("bearer alone") << "Bearer" << key << "...";
    QTest::newRow("non-ascii key") << QStringLiteral("Bearer ключ-1234") << key << QStringLiteral("ключ...");
}

void TestResponse::auth()
{
    QFETCH(QString, authorization);
    QFETCH(int, outcome);
    QFETCH(QString, shown);
    const Licence licence;  // no rows: nothing enabled, no key known
    QVERIFY(!licence.webApiEnabled() && !licence.deviceAllowed(1000) && !licence.developmentAllowed(QString()));
    const Licence::Auth auth = licence.checkAuth(authorization, Licence::Scope::Terminal);
    QCOMPARE(int(auth.outcome), outcome);
    QCOMPARE(auth.shown, shown);
}

void TestResponse::periodFilter_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<bool>("monthly");
    QTest::addColumn<QDate>("today");
    QTest::addColumn<QDate>("expected");  // invalid: refused
    const QDate may15(2024, 5, 15);
    QTest::newRow("letters are today") << "abc" << false << may15 << may15;
    QTest::newRow("trailing letter dropped") << "2024-05-01x" << false << may15 << QDate(2024, 5, 1);
    QTest::newRow("yesterday over new year") << "-1" << false << QDate(2024, 1, 1) << QDate(2023, 12, 31);
    QTest::newRow("digits are days") << "2024" << false << may15 << may15.addDays(2024);
    QTest::newRow("common year") << "2023-02-29" << false << may15 << QDate();
    QTest::newRow("month in day mode") << "2024-05" << false << may15 << QDate();
    QTest::newRow("minus alone") << "-" << false << may15 << QDate();
    QTest::newRow("last month in january") << "-1" << true << QDate(2024, 1, 10) << QDate(2023, 12, 10);
    QTest::newRow("literal month") << "2024-05" << true << may15 << QDate(2024, 5, 1);
    QTest::newRow("day in month mode") << "2024-05-01" << true << may15 << QDate();
}

void TestResponse::periodFilter()
{
    QFETCH(QString, word);
    QFETCH(bool, monthly);
    QFETCH(QDate, today);
    QFETCH(QDate, expected);
    QCOMPARE(parsePeriodFilter(filterDigits(word), monthly, today), expected);
}

void TestResponse::errorCatalogue()
{
    // The body of GET response-errors: every code with its status, status name and message.
    COMPARE_EXPECTED(QJsonDocument::fromVariant(Response::errorList()).toJson(), "response/errors.json");
    const QList<int> outside = {199, 250, 306, 419, 598, 600};
    const QStringList names = {"Information", "Success", "Redirect", "Client Error", "Server Error", "Unknown"};
    for (int i = 0; i < outside.size(); ++i)
        QCOMPARE(httpStatusName(outside.at(i)), names.at(i));
}

void TestResponse::errorBodies_data()
{
    QTest::addColumn<bool>("develEnv");
    QTest::addColumn<uint>("code");
    QTest::addColumn<QStringList>("args");  // setError's; with a status last: setErrorBody's
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");  // null: no "message" key
    const uint sql = Response::RE_SQLError;
    QTest::newRow("sql error hidden") << false << sql << QStringList{"Table 'x'"} << 500 << "Database error";
    QTest::newRow("sql error shown") << true << sql << QStringList{"Table 'x'"} << 500 << "SQL Error: 'Table 'x''";
    QTest::newRow("no argument") << false << uint(Response::RE_NoPerson) << QStringList() << 404 << "Person not found!";
    QTest::newRow("two arguments, percent in the first") << false << uint(Response::RE_JsonParseError)
                                                         << QStringList{"bad %2", "17"} << 400
                                                         << "JSON parse error 'bad %2' at 17";
    // Codes 500-599 hide their text outside development; a status outside 100-599 is ignored.
    QTest::newRow("code 500 hidden") << false << 500u << QStringList{"decode failed", "400"} << 400 << QString();
    QTest::newRow("code 599 shown") << true << 599u << QStringList{"decode failed", "400"} << 400 << "decode failed";
    QTest::newRow("code 600 shown") << false << 600u << QStringList{"x", "599"} << 599 << "x";
    QTest::newRow("code 499, status 600") << false << 499u << QStringList{"x", "600"} << 200 << "x";
    QTest::newRow("status 99") << false << 4242u << QStringList{"x", "99"} << 200 << "x";
}

void TestResponse::errorBodies()
{
    QFETCH(bool, develEnv);
    QFETCH(uint, code);
    QFETCH(QStringList, args);
    QFETCH(int, status);
    QFETCH(QString, message);
    RequestHeader header;
    header.develEnv = develEnv;
    Response response(header);
    response.setData(QVariantMap{{"earlier", true}});
    const bool direct = code < 100000;
    if (direct)
        response.setErrorBody(args.at(0), code, quint16(args.at(1).toUInt()));
    else if (args.size() == 2)
        response.setError(code, args.at(0), args.at(1));
    else if (args.size() == 1)
        response.setError(code, args.at(0));
    else
        response.setError(code);
    QVariantMap expected{{"code", code}};
    if (!message.isNull())
        expected.insert(QStringLiteral("message"), message);
    const HttpReply reply = HttpReply::parse(response.renderResponse(true));
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.json().toVariant().toMap(), expected);
    QCOMPARE(response.errorCode(), int(code));
}

void TestResponse::renderedBytes()
{
    Response fresh{RequestHeader()};
    COMPARE_EXPECTED(maskTms(fresh.renderResponse(true)), "response/fresh.http");
    // Extra headers in key order, a '%' and non-ASCII text kept, Content-Length in bytes; an
    // invalid value keeps the body.
    Response response{RequestHeader()};
    response.setHeader(QStringLiteral("X-WEBAPI-VER"), QStringLiteral("2.4.1"));
    response.setHeader(QStringLiteral("X-WEBAPI-COUNT"), 2);
    response.setStatus(208);
    response.setData(QVariantList{QVariantMap{{"name", QStringLiteral("Příliš žluťoučký %1 %2")}, {"uid", 1}},
                                  QVariantMap{{"name", QStringLiteral("100%")}, {"uid", 2}}});
    response.setData(QVariant());
    const QByteArray raw = response.renderResponse(true);
    COMPARE_EXPECTED(maskTms(raw), "response/list.http");
    QCOMPARE(response.renderResponse(false), raw.mid(raw.indexOf("\r\n\r\n") + 4));

    // The faulty bytes come from a subclass: QJsonDocument always writes valid UTF-8.
    class FaultyResponse : public Response
    {
    public:
        using Response::Response;

    protected:
        QByteArray toJson() const override { return QByteArrayLiteral("{\"n\": \"\xff\"}\n"); }
    };
    FaultyResponse faulty{RequestHeader()};
    COMPARE_EXPECTED(maskTms(faulty.renderResponse(true)), "response/invalid-utf8.http");
}

QTEST_GUILESS_MAIN(TestResponse)
#include "tst_response.moc"
