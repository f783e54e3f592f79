// Entrances posted by a terminal, through buildResponse on the private MariaDB: repeats,
// refusals and photos.
#include "support/apifixture.h"

#include "response/response.h"
#include "worker/webapiworker.h"

#include <QSignalSpy>
#include <QtTest>

class TestEntrances : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wholeResponses_data();
    void wholeResponses();
    void repeatIs208();
    void otherEventSameRefIdIsWritten();
    void photoStoredAndAnnounced();
    void withoutRefIdBothKept();
    void badInput_data();
    void badInput();

private:
    HttpReply post(const QJsonObject &body);
    QJsonObject entrance(int refId, int iid = 1) const;
    int rows();

    QScopedPointer<ApiFixture> m_fx;
    QString m_tid;
    QString m_uid;
};

void TestEntrances::initTestCase()
{
    qRegisterMetaType<quint8>("quint8");
    m_fx.reset(new ApiFixture(QStringLiteral("entrances")));
    QVERIFY2(m_fx->setUp(), qPrintable(m_fx->error()));
    m_tid = m_fx->addTerminal(201);
    TestDatabase &db = m_fx->customer();
    QVERIFY2(db.exec(QStringLiteral("INSERT INTO people (uid, pid, status, name, begin) VALUES (1, 1001, 1, 'Jana', 0)")),
             qPrintable(db.error()));
    QVERIFY2(db.exec(QStringLiteral("INSERT INTO inters (iid, name, shortcut) VALUES (1, 'Arrival', 'A'), (2, 'Leave', 'L')")),
             qPrintable(db.error()));
    m_uid = WebApiWorker::encodeId(1, 1001);
}

QJsonObject TestEntrances::entrance(int refId, int iid) const
{
    QJsonObject body;
    body.insert("uid", m_uid);
    body.insert("iid", iid);
    body.insert("type", 1);
    body.insert("date", "2024-05-01T08:00:00");
    body.insert("description", "Front door");
    if (refId != 0)
        body.insert("refId", refId);
    return body;
}

HttpReply TestEntrances::post(const QJsonObject &body)
{
    return m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/entrance"), m_fx->terminalHeaders(m_tid),
                         QJsonDocument(body).toJson());
}

int TestEntrances::rows()
{
    return m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM inters_data")).toInt();
}

void TestEntrances::wholeResponses_data()
{
    QTest::addColumn<QJsonObject>("body");
    QTest::addColumn<QString>("expectedFile");

    QTest::newRow("new") << entrance(5) << "terminal/entrance-new.http";
    QTest::newRow("unknown reason") << entrance(6, 999) << "terminal/entrance-unknown-iid.http";
}

void TestEntrances::wholeResponses()
{
    QFETCH(QJsonObject, body);
    QFETCH(QString, expectedFile);
    QVERIFY(m_fx->customer().exec(QStringLiteral("ALTER TABLE inters_data AUTO_INCREMENT = 700")));
    if (body.value("iid").toInt() == 999)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                               "^WebApiWorker::dbInsertEntrance\\( \\d+ , 6 \\) - IID  999 missing in ZMTDB! data:")));
    QByteArray raw = maskTms(m_fx->call(QStringLiteral("POST"), QStringLiteral("/webapi/entrance"),
                                        m_fx->terminalHeaders(m_tid), QJsonDocument(body).toJson()));
    // The row's write time is now.
    const QRegularExpressionMatch created =
        QRegularExpression(QStringLiteral("\"created\": \"[^\"]+\"")).match(QString::fromUtf8(raw));
    if (created.hasMatch())
        raw.replace(created.captured().toUtf8(), "\"created\": \"<NOW>\"");
    COMPARE_EXPECTED(raw, expectedFile);
}

void TestEntrances::repeatIs208()
{
    QSignalSpy created(m_fx->worker(), &WebApiWorker::recordCreated);
    const HttpReply first = post(entrance(10));
    QCOMPARE(first.status, 201);
    const int before = rows();
    const HttpReply again = post(entrance(10));
    QCOMPARE(again.status, 208);
    QCOMPARE(again.json().object().value("eid"), first.json().object().value("eid"));
    QCOMPARE(rows(), before);
    QCOMPARE(created.count(), 0);
}

void TestEntrances::otherEventSameRefIdIsWritten()
{
    QCOMPARE(post(entrance(11)).status, 201);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral(
                                           "^WebApiWorker::dbInsertEntrance\\(\\) - different entrance with same refId "
                                           "from Terminal ID: \\d+! \n\\(id: \\d+, refId: 11, uid \\[ZMTDB\\]: 1\\)$")));
    const int before = rows();
    const HttpReply other = post(entrance(11, 2));
    QCOMPARE(other.status, 201);
    QCOMPARE(other.json().object().value("iid").toInt(), 2);
    // The terminal's number is unique per terminal here, so the new event takes the row over.
    QCOMPARE(rows(), before);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT iid FROM inters_data WHERE refId = 11")).toInt(), 2);
}

void TestEntrances::photoStoredAndAnnounced()
{
    QByteArray photo(1024 * 1024, '\0');
    for (int i = 0; i < photo.size(); ++i)
        photo[i] = char((i * 7 + i / 256) & 0xFF);
    QSignalSpy created(m_fx->worker(), &WebApiWorker::recordCreated);
    QJsonObject body = entrance(30);
    body.insert("image", QString::fromLatin1(photo.toBase64()));

    const HttpReply reply = post(body);
    QCOMPARE(reply.status, 201);
    const uint id = m_fx->customer().scalar(QStringLiteral("SELECT id FROM inters_data WHERE refId = 30")).toUInt();
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT photo FROM inters_data WHERE id = %1").arg(id)).toByteArray(),
             photo);
    QCOMPARE(created.count(), 1);
    const QList<QVariant> args = created.first();
    QCOMPARE(args.at(0).toString(), QStringLiteral("inters_data"));
    QCOMPARE(args.at(1).toUInt(), id);
    QCOMPARE(args.at(2).toString(), m_fx->token());
    QCOMPARE(args.at(3).value<quint8>(), quint8(1));

    QCOMPARE(post(body).status, 208);                // a repeat announces nothing
    QCOMPARE(post(entrance(31)).status, 201);        // nor does an entrance without a photo
    body = entrance(32);
    body.insert("image", "");
    QCOMPARE(post(body).status, 201);                // nor one whose image decodes to nothing
    QCOMPARE(created.count(), 1);
    QVERIFY(m_fx->customer().scalar(QStringLiteral("SELECT photo FROM inters_data WHERE refId = 32")).isNull());
}

void TestEntrances::withoutRefIdBothKept()
{
    QJsonObject body = entrance(0);
    body.insert("description", "no number");
    QCOMPARE(post(body).status, 201);
    QCOMPARE(post(body).status, 201);
    QCOMPARE(m_fx->customer().scalar(QStringLiteral("SELECT COUNT(*) FROM inters_data WHERE description = 'no number'")).toInt(), 2);
}

void TestEntrances::badInput_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("code");  // -1: not checked

    const auto json = [](const QJsonObject &body) { return QJsonDocument(body).toJson(); };
    QJsonObject body = entrance(20);
    body.remove("uid");
    QTest::newRow("no uid") << json(body) << 422 << int(Response::RE_RequiredUID);
    body.insert("uid", "");
    QTest::newRow("empty uid") << json(body) << 422 << int(Response::RE_RequiredUID);
    body.insert("uid", "garbage");
    QTest::newRow("unreadable uid") << json(body) << 400 << int(Response::RE_InvalidID);
    body.insert("uid", WebApiWorker::encodeId(1, 9999));
    QTest::newRow("unknown person") << json(body) << 400 << int(Response::RE_InvalidID);
    body = entrance(20);
    body.remove("iid");
    QTest::newRow("no iid") << json(body) << 422 << int(Response::RE_RequiredField);
    body.insert("iid", "0");
    QTest::newRow("iid 0") << json(body) << 422 << int(Response::RE_RequiredField);
    body.insert("iid", "abc");
    QTest::newRow("iid text") << json(body) << 422 << int(Response::RE_RequiredField);
    body = entrance(20);
    body.remove("type");
    QTest::newRow("no type") << json(body) << 422 << int(Response::RE_RequiredField);

    const QByteArray uid = WebApiWorker::encodeId(1, 1001).toLatin1();
    QTest::newRow("not json") << QByteArray("uid=1") << 400 << -1;
    QTest::newRow("array") << QByteArray("[1, 2]") << 422 << -1;
    QTest::newRow("uid number") << QByteArray(R"({"uid": 5, "iid": 1, "type": 1})") << 400 << -1;
    QTest::newRow("uid object") << QByteArray(R"({"uid": {"a": 1}, "iid": 1, "type": 1})") << 422 << -1;
    QTest::newRow("type text") << QByteArray(R"({"uid": ")" + uid + R"(", "iid": 1, "type": "in", "refId": 40})") << 400 << -1;
    QTest::newRow("date garbage") << QByteArray(R"({"uid": ")" + uid + R"(", "iid": 1, "type": 1, "date": "soon", "refId": 41})")
                                  << 400 << -1;
    QTest::newRow("iid huge") << QByteArray(R"({"uid": ")" + uid + R"(", "iid": 1e30, "type": 1, "refId": 42})") << 422 << -1;
    QTest::newRow("description with quotes and colons")
        << QByteArray(R"({"uid": ")" + uid + R"(", "iid": 1, "type": 1, "refId": 43, "description": "a \"b\" :c 'd' %1"})")
        << 201 << 0;
}

void TestEntrances::badInput()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(int, code);
    // The server's refusals of a bound value take the logged code 500 way.
    if (QTest::currentDataTag() == QLatin1String("type text") || QTest::currentDataTag() == QLatin1String("date garbage"))
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral("^WebApiWorker::dbInsertEntrance\\(\\) SQl ERROR:")));
    const int before = rows();
    const HttpReply reply = m_fx->request(QStringLiteral("POST"), QStringLiteral("/webapi/entrance"),
                                          m_fx->terminalHeaders(m_tid), body);
    QVERIFY(reply.valid);
    QCOMPARE(reply.status, status);
    if (code >= 0)
        QCOMPARE(reply.errorCode(), code);
    QCOMPARE(rows(), before + (status == 201 ? 1 : 0));
    if (status == 201)
        QCOMPARE(reply.json().object().value("description").toString(), QStringLiteral("a \"b\" :c 'd' %1"));
}

QTEST_GUILESS_MAIN(TestEntrances)
#include "tst_entrances.moc"
