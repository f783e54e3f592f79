// Reading the request: header lines, the context and the path words. No database: a worker
// without a manager stops at the database step, after all of these ran.
#include "response/response.h"
#include "support/httpreply.h"
#include "worker/webapiworker.h"

#include <QtTest>

class TestParseHeader : public QObject
{
    Q_OBJECT

private slots:
    void parseHeader_data();
    void parseHeader();
    void selectContext_data();
    void selectContext();
    void urlPathWords_data();
    void urlPathWords();
};

void TestParseHeader::parseHeader_data()
{
    QTest::addColumn<QStringList>("lines");
    // token | Content-Type | Authorization | TID | AID | valid | devel value (its digest in the
    // customer's vars decides, later)
    QTest::addColumn<QString>("expected");

    QTest::newRow("no lines") << QStringList() << "|||||0|";
    QTest::newRow("all headers")
        << QStringList{"Pragma: token-a1", "Content-Type: application/json", "Authorization: Bearer k",
                       "X-ZMT-TID: MTIuMzQ1", "X-ZMT-AID: adm-1", "X-WEBAPI-DEVEL-ENV: zmt-devel"}
        << "token-a1|application/json|Bearer k|MTIuMzQ1|adm-1|1|zmt-devel";
    QTest::newRow("pragma name ignores case") << QStringList{"pragma: my-token"} << "my-token|||||0|";
    QTest::newRow("token word respects case") << QStringList{"Pragma: TOKEN"} << "|||||0|";
    QTest::newRow("pragma without token") << QStringList{"Pragma: no-cache"} << "|||||0|";
    // A Pragma line without the word runs on through the other rows.
    QTest::newRow("pragma line reaching row 3") << QStringList{"Pragma: Authorization"} << "||Authorization|||1|";
    QTest::newRow("token keeps the whole value") << QStringList{"Pragma: my token x"} << "my token x|||||0|";
    QTest::newRow("unanchored match") << QStringList{"X-Note: Authorization"} << "||Authorization|||1|";
    QTest::newRow("first row wins") << QStringList{"Content-Type: Authorization"} << "|Authorization||||0|";
    QTest::newRow("last line wins") << QStringList{"Authorization: a", "Authorization: b"} << "||b|||1|";
    QTest::newRow("colon cuts the value") << QStringList{"Authorization: abc:def"} << "||abc|||1|";
    QTest::newRow("empty parts dropped") << QStringList{"Authorization:: x"} << "||x|||1|";
    QTest::newRow("no colon") << QStringList{"Authorization"} << "|||||1|";
    QTest::newRow("header names ignore case")
        << QStringList{"CONTENT-TYPE: text/plain", "authorization: Bearer x", "x-zmt-tid: t", "X-Zmt-Aid: a"}
        << "|text/plain|Bearer x|t|a|1|";
    QTest::newRow("white space collapsed") << QStringList{"  Authorization:\t Bearer   k1 \r\n"} << "||Bearer k1|||1|";
    QTest::newRow("devel name in another case") << QStringList{"x-webapi-devel-env: Zmt-devel"} << "|||||0|Zmt-devel";
    QTest::newRow("later devel line wins")
        << QStringList{"X-WEBAPI-DEVEL-ENV: zmt-devel", "X-WEBAPI-DEVEL-ENV: no"} << "|||||0|no";
    QTest::newRow("unknown lines ignored") << QStringList{"Host: example", "Accept: */*", ""} << "|||||0|";
}

void TestParseHeader::parseHeader()
{
    QFETCH(QStringList, lines);
    QFETCH(QString, expected);

    const RequestHeader h = parseRequestHeader(lines);
    QCOMPARE(QStringList({h.token, h.contentType, h.authorization, h.tid, h.aid, QString::number(h.valid),
                          h.develToken})
                 .join(QLatin1Char('|')),
             expected);
    QVERIFY(!h.develEnv);
    QVERIFY(h.prettyJson);
}

void TestParseHeader::selectContext_data()
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
    QTest::newRow("get response-errors, aid") << "GET" << "/webapi/response-errors" << true << terminal;
    QTest::newRow("post inters, aid") << "POST" << "/webapi/inters" << true << admin;
    QTest::newRow("lower-case get, aid") << "get" << "/webapi/info" << true << admin;
    QTest::newRow("Info in capitals, aid") << "GET" << "/webapi/Info" << true << admin;
    QTest::newRow("root") << "GET" << "/webapi" << false << terminal;
}

void TestParseHeader::selectContext()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(bool, withAid);
    QFETCH(int, context);

    WebApiWorker worker(QStringLiteral("2.4.1"));
    QStringList headers{QStringLiteral("Pragma: token-x"), QStringLiteral("Authorization: Bearer k")};
    if (withAid)
        headers.append(QStringLiteral("X-ZMT-AID: admin-token"));
    const HttpReply reply = HttpReply::parse(worker.buildResponse(method, QUrl(QStringLiteral("http://h") + path),
                                                                  headers, QByteArray()));
    // Without a manager the request ends at the database step, after the context was chosen.
    QCOMPARE(reply.status, 503);
    QCOMPARE(reply.errorCode(), int(Response::RE_BadDatabase));
    QCOMPARE(int(worker.contextType()), context);
}

void TestParseHeader::urlPathWords_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QStringList>("words");
    QTest::newRow("two words") << "http://h/webapi/person/abc" << QStringList{"person", "abc"};
    QTest::newRow("prefix and slash") << "http://h/webapi/" << QStringList();
    QTest::newRow("no path") << "http://h" << QStringList();
    QTest::newRow("repeated slashes") << "http://h//webapi///people//" << QStringList{"people"};
    QTest::newRow("query ignored") << "http://h/webapi/people?x=1/2" << QStringList{"people"};
    QTest::newRow("decoded blank") << "http://h/webapi/a%20b" << QStringList{"a b"};
    QTest::newRow("encoded slash splits") << "http://h/webapi/a%2Fb" << QStringList{"a", "b"};
    QTest::newRow("case kept") << "http://h/WebApi/Info" << QStringList{"Info"};
}

void TestParseHeader::urlPathWords()
{
    QFETCH(QString, url);
    QFETCH(QStringList, words);
    QCOMPARE(::urlPathWords(QUrl(url)), words);
}

QTEST_GUILESS_MAIN(TestParseHeader)
#include "tst_parseheader.moc"
