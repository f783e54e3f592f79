#ifndef WEBAPIWORKER_H
#define WEBAPIWORKER_H

#include "plugin/httppluginworker.h"
#include "licence/licence.h"
#include "request/requestheader.h"
#include "worker/workerconnections.h"

#include <QSharedPointer>
#include <QTimer>
#include <QVariant>

#include <functional>

class JsonWriter;
class QSqlQuery;
class Response;
struct SyncSection;

// Does the plug-in's work: one request in, one complete HTTP response out. The spine
// (parsing, context, database, licence, routing) lives in webapiworker.cpp; the terminal
// handlers and the database operations in files of their own by theme.
class WebApiWorker : public HttpPluginWorker
{
    Q_OBJECT

public:
    enum ContextType { UnknownContext = 0, TerminalContext = 1, AdminContext = 2 };
    Q_ENUM(ContextType)

    WebApiWorker(const QString &version, QObject *parent = nullptr);
    ~WebApiWorker() override;

    QByteArray buildResponse(const QString &method, const QUrl &url,
                             const QStringList &headers, const QByteArray &body) override;
    void setDatabase(const QSqlDatabase &db) override;
    bool isReady() override;

    void selectContext(const QString &method, const QString &firstWord);
    bool initDatabase();
    // The licence rows, which are also the first statement of every request: on a reused
    // connection whose server is gone, the connection is opened again once and they are reread.
    bool loadLicence();
    bool isValidPath(const QString &method, const QStringList &words) const;
    void routeInTerminalContext(const QString &method, const QStringList &words, const QByteArray &body);
    void routeInAdminContext(const QString &method, const QUrl &url, const QByteArray &body);
    QVariant terminalInfo() const;

    ContextType contextType() const { return m_contextType; }
    const RequestHeader &header() const { return m_header; }
    Response *response() const { return m_response.data(); }

    // Licence checks on the request's connection (rows read once per request).
    bool checkWebApiEnabled(const QString &firstWord);
    bool checkAuth(const QString &authorization);
    bool checkTerminalInVorix(uint vid);

    // Composite identifiers and time texts (identifiers.cpp).
    static QString encodeId(uint first, uint second);
    static QByteArray decodeBase64(const QString &text);
    static bool decodeId(const QString &text, uint &first, uint &second);
    static QString secsToIsoDateTime(qint64 secs);
    static QString secsToIsoDate(qint64 secs);
    static qint64 isoToSecs(const QString &text);

    // Terminal verb handlers (handlers.cpp).
    void buildGetResponse(const QStringList &words);
    void buildPostResponse(const QStringList &words, const QByteArray &body);
    void buildPutResponse(const QStringList &words, const QByteArray &body);
    void buildDeleteResponse(const QStringList &words);

    // Terminal records (terminals.cpp).
    bool dbCheckTerm(uint tid, uint vorixID);
    bool dbSetTermOnline(uint tid);
    uint dbInsertTerm(const QVariantMap &data);
    QVariantMap dbGetTerm(uint tid);
    bool dbUpdateTerm(uint tid, const QVariantMap &data);

    // People (people.cpp).
    bool dbCheckPerson(uint uid, uint pid);
    bool dbDeletePerson(uint tid, uint uid);
    QVariant dbGetPeople(uint uid);
    QVariant dbGetPeople4Terminal(uint tid, uint uid);
    uint dbInsertPerson(uint tid, const QVariantMap &data);
    bool dbUpdatePerson(uint tid, uint uid, const QVariantMap &data);
    bool dbSetOtherTermsPeopleSync(uint tid, uint uid, char type);
    bool isForeignKeyError(const QString &text) const;
    bool isMissingIID(const QString &text) const;

    // Entrances (entrances.cpp).
    bool dbCheckEntrance(uint id, uint refId);
    bool dbDeleteEntrance(uint tid, uint id);
    uint dbGetEntranceMaxRefId(uint tid);
    uint dbInsertEntrance(uint tid, const QVariantMap &data);
    QVariant dbGetEntrance(uint id);
    // The first stored row of the event in `values` under this refId (0: none) in `id`; the
    // date counts only when `values` has one. False when the lookup failed (reported).
    bool findRepeatedEntrance(uint tid, uint refId, const QVariantMap &values, uint &id);

    // Synchronisation feed (sync.cpp); built and tested, not routed.
    bool dbGetSync(uint tid, bool force);
    QVariantMap dbGetSyncInters(uint tid, bool force);
    QVariantMap dbGetSyncPeople(uint tid, bool force);
    QVariantMap dbGetSyncSaldo(uint tid, bool force);
    QVariantMap dbGetSyncPresent(uint tid, bool force);
    QVariantMap dbGetSyncTimezones(uint tid, bool force);
    QVariantMap dbGetClrGrp(uint tid, bool force);
    QVariantMap dbGetVars(uint tid);
    int dbDeleteSync(uint tid, uint created, quint16 flags);
    bool dbSetTermSyn(uint tid, quint16 flags);
    QString dbGetColorGroups();

    // Reference lists and balances (lists.cpp).
    QVariant dbGetInters4Terminal(uint tid, uint vorixID);
    QVariant dbGetInter();
    QVariant dbGetAttendanceGroups();
    bool dbGetSaldo(uint tid, uint uid);
    QVariant dbGetPresent4Terminal(uint tid, uint uid);
    QVariant dbGetPresent(uint uid);

signals:
    void recordCreated(QString tbl, uint id, const QString &token, quint8 flags);

protected:
    // The one shape of a failed statement in the terminal context: RE_SQLError with the
    // driver's text, and the operation's critical line with the last query.
    void reportSqlError(const QSqlQuery &query, const char *logLine);
    void reportSqlError(const QString &error, const QString &sql, const char *logLine);
    // "key=:key" (or another `shape` with one "%1") for every value, in key order, joined by
    // ", ": the column lists of statements whose values are all bound.
    static QString boundAssignments(const QVariantMap &values, const QString &shape = QStringLiteral("%1=:%1"));
    // Prepares `sql` and binds every value under ":" and its key: no client text becomes part
    // of a statement. False when the prepare failed (the query holds the error).
    bool prepareBound(QSqlQuery &query, const QString &sql, const QVariantMap &values);
    // prepareBound and exec; a failure of either is reported with `failureLine`.
    bool execBound(QSqlQuery &query, const QString &sql, const QVariantMap &values, const char *failureLine);
    // The shared body of the keyed feed sections (sync.cpp).
    QVariantMap dbGetSyncSection(const SyncSection &section, uint tid, bool force);

    // The terminal test of the verb handlers: `text` decodes and names a live terminal, whose
    // number lands in `tid`. `between` runs after decoding, before the row check; false ends it.
    bool checkTerminalId(const QString &text, uint &tid, const std::function<bool()> &between = nullptr);
    // The person test: `text` decodes into `uid` and `pid` of an active person.
    bool checkPersonId(const QString &text, uint &uid, uint &pid);

    // The list pattern of the read operations: each row written as an object by `writeRow`,
    // which resolved its columns once for the statement. With `single` the first row's
    // object is the body alone; otherwise, and when `single` found no row, the array, with
    // X-WEBAPI-COUNT. Returns the written body (JsonText).
    using RowWriter = std::function<void(JsonWriter &json, const QSqlQuery &query)>;
    QVariant collectRows(QSqlQuery &query, bool single, const RowWriter &writeRow);
    // First column of a COUNT statement in `count`; false (and reported) when it failed.
    bool queryCount(const QString &sql, const char *failureLine, uint &count);
    // A write statement: true when it changed a row; false also when it failed (reported).
    bool execWrite(const QString &sql, const char *failureLine);
    // Links a person to a terminal unless linked already; false only when the link test failed.
    bool dbLinkPerson(uint uid, uint tid, const char *failureLine);

    QString m_version;
    ContextType m_contextType = UnknownContext;
    QStringList m_verbs;
    QStringList m_getPaths;
    QStringList m_postPaths;
    QStringList m_putPaths;
    QStringList m_deletePaths;
    QStringList m_terminalOnlyPaths;
    RequestHeader m_header;
    QSharedPointer<Response> m_response;
    Licence m_licence;  // the licence rows of the current request

private:
    ConnectionSettings connectionSettings() const;
    void closeIdleConnections();

    WorkerConnections m_connections;
    bool m_reusedConnection = false;  // m_db was open before this request
    QTimer m_idleTimer;               // closes idle connections while no request comes
};

#endif
