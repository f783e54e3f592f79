#include "worker/webapiworker.h"

#include "response/response.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QtDebug>

// The terminal verb handlers: a path and a body in, calls of the db operations out. They hold
// no SQL and never render; the first failure ends a handler.

namespace {

// The path test every handler starts with: enough words, and a first word the verb serves.
bool isServedPath(const QStringList &words, int minWords, const QStringList &paths, Response *response)
{
    if (words.size() < minWords) {
        response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
        return false;
    }
    if (!paths.contains(words.first())) {
        response->setError(Response::RE_InvalidApiEndpoint, words.first());
        return false;
    }
    return true;
}

} // namespace

bool WebApiWorker::checkTerminalId(const QString &text, uint &tid, const std::function<bool()> &between)
{
    uint vorixID = 0;
    if (!decodeId(text, tid, vorixID)) {
        m_response->setError(Response::RE_InvalidID, text);
        return false;
    }
    if (between && !between())
        return false;
    if (!dbCheckTerm(tid, vorixID)) {
        // A read that failed has said so: a terminal is never told it is unknown for that.
        if (m_response->errorCode() != Response::RE_SQLError)
            m_response->setError(Response::RE_NoTerminal);
        return false;
    }
    return true;
}

bool WebApiWorker::checkPersonId(const QString &text, uint &uid, uint &pid)
{
    if (!decodeId(text, uid, pid)) {
        m_response->setError(Response::RE_InvalidID, text);
        return false;
    }
    if (!dbCheckPerson(uid, pid)) {
        m_response->setError(Response::RE_NoPerson);
        return false;
    }
    return true;
}

void WebApiWorker::buildGetResponse(const QStringList &words)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildGetResponse(" << words.join(QStringLiteral(" | ")) << ")";
    if (!isServedPath(words, 1, m_getPaths, m_response.data()))
        return;
    const QString &word = words.first();
    // The public lists need no terminal.
    if (word == QLatin1String("info")) {
        m_response->setData(terminalInfo());
        return;
    }
    if (word == QLatin1String("response-errors")) {
        m_response->setData(Response::errorList());
        return;
    }
    if (word == QLatin1String("groups")) {
        m_response->setData(dbGetAttendanceGroups());
        return;
    }
    if (word == QLatin1String("inters")) {
        m_response->setData(dbGetInter());
        return;
    }

    uint tid = 0;
    if (!checkTerminalId(m_header.tid, tid))
        return;
    const bool personal = word == QLatin1String("person") || word == QLatin1String("present");
    uint uid = 0;
    uint pid = 0;
    if (personal && words.size() > 1 && !checkPersonId(words.at(1), uid, pid))
        return;
    if (word == QLatin1String("present"))
        m_response->setData(dbGetPresent(uid));
    else
        m_response->setData(dbGetPeople(uid));  // "person" without a person is "people"
}

void WebApiWorker::buildPostResponse(const QStringList &words, const QByteArray &body)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildPostResponse(" << words.join(QStringLiteral(" | ")) << body.size() << ")";
    QJsonParseError parseError;
    const QVariantMap data = QJsonDocument::fromJson(body, &parseError).toVariant().toMap();
    if (!isServedPath(words, 1, m_postPaths, m_response.data()))
        return;
    const QString &word = words.first();
    if (parseError.error != QJsonParseError::NoError) {
        m_response->setError(Response::RE_JsonParseError, parseError.errorString(), QString::number(parseError.offset));
        return;
    }

    if (word == QLatin1String("terminal")) {
        // How a terminal gets its identifier, so no tid is asked for.
        if (!checkTerminalInVorix(data.value(QStringLiteral("vid")).toUInt())) {
            m_response->setError(Response::RE_BadVID);
            return;
        }
        const uint tid = dbInsertTerm(data);
        // A switched-off device is refused in the licence's words; any other failed
        // registration answers an empty map under the error's status.
        if (m_response->errorCode() != Response::RE_BadVID)
            m_response->setData(dbGetTerm(tid));
        return;
    }

    uint tid = 0;
    const bool known = checkTerminalId(m_header.tid, tid, [&]() {
        if (m_debugLevel >= 2)
            qDebug() << "WebApiWorker::buildPutResponse()" << word << m_header.tid << ")";
        return true;
    });
    if (!known)
        return;
    if (word == QLatin1String("person")) {
        const uint uid = dbInsertPerson(tid, data);
        if (uid != 0)
            m_response->setData(dbGetPeople4Terminal(tid, uid));
    } else if (word == QLatin1String("entrance")) {
        const uint id = dbInsertEntrance(tid, data);
        if (id != 0)
            m_response->setData(dbGetEntrance(id));
    }
}

void WebApiWorker::buildPutResponse(const QStringList &words, const QByteArray &body)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildPutResponse(" << words.join(QStringLiteral(" | ")) << body.size() << ")";
    QJsonParseError parseError;
    const QVariantMap data = QJsonDocument::fromJson(body, &parseError).toVariant().toMap();
    if (!isServedPath(words, 2, m_putPaths, m_response.data()))
        return;
    const QString &word = words.first();
    // The terminal comes from the path here, and the body is judged after its identifier.
    uint tid = 0;
    const bool known = checkTerminalId(words.at(1), tid, [&]() {
        if (m_debugLevel != 0)
            qDebug() << "WebApiWorker::buildPutResponse()" << word << words.at(1) << ")";
        if (parseError.error != QJsonParseError::NoError) {
            m_response->setError(Response::RE_JsonParseError, parseError.errorString(),
                                 QString::number(parseError.offset));
            return false;
        }
        return true;
    });
    if (!known)
        return;

    if (word == QLatin1String("term")) {
        if (!dbUpdateTerm(tid, data))
            m_response->setStatus(208);
    } else if (word == QLatin1String("person")) {
        if (words.size() < 3) {
            m_response->setError(Response::RE_InvalidApiEndpoint, words.join(QLatin1Char('/')));
            return;
        }
        uint uid = 0;
        uint pid = 0;
        if (!checkPersonId(words.at(2), uid, pid))
            return;
        QVariantMap result;
        result.insert(QStringLiteral("pid"), pid);
        result.insert(QStringLiteral("uid"), uid);
        if (!dbUpdatePerson(tid, uid, data)) {
            m_response->setStatus(208);
            return;
        }
        result.insert(QStringLiteral("setOtherTerms"), dbSetOtherTermsPeopleSync(tid, uid, 'U'));
        m_response->setData(result);
    }
}

void WebApiWorker::buildDeleteResponse(const QStringList &words)
{
    if (m_debugLevel != 0)
        qDebug() << "WebApiWorker::buildDeleteResponse(" << words.join(QStringLiteral(" | ")) << ")";
    if (!isServedPath(words, 3, m_deletePaths, m_response.data()))
        return;
    const QString &word = words.first();
    uint tid = 0;
    if (!checkTerminalId(words.at(1), tid))
        return;
    const QString &target = words.at(2);
    if (m_debugLevel >= 2)
        qDebug() << "WebApiWorker::buildDeleteResponse()" << word << words.at(1) << target << ")";

    uint first = 0;
    uint second = 0;
    if (word == QLatin1String("person")) {
        if (!checkPersonId(target, first, second))
            return;
        if (!dbDeletePerson(tid, first))
            m_response->setStatus(208);
    } else if (word == QLatin1String("entrance")) {
        if (!decodeId(target, first, second)) {
            m_response->setError(Response::RE_InvalidID, target);
            return;
        }
        if (!dbCheckEntrance(first, second)) {
            m_response->setError(Response::RE_NoEntrance);
            return;
        }
        if (!dbDeleteEntrance(tid, first))
            m_response->setStatus(208);
    } else if (word == QLatin1String("sync")) {
        // The identifier carries the acknowledged time and the sections; a time ahead of ours is refused.
        if (!decodeId(target, first, second) || first > QDateTime::currentDateTime().toTime_t()) {
            m_response->setError(Response::RE_InvalidID, target);
            return;
        }
        m_response->setData(dbDeleteSync(tid, first, quint16(second & 0xFFFF)));
    }
}
