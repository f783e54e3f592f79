#include "response/sqlrow.h"

#include "response/jsonwriter.h"

#include <QSqlDriver>
#include <QSqlQuery>
#include <QSqlResult>
#include <QTextCodec>

#include <mysql.h>

namespace {

// A handle of the driver's own type, or null: the driver names its handles' types.
template <typename Handle>
Handle *driverHandle(const QVariant &handle, const char *typeName)
{
    return handle.isValid() && qstrcmp(handle.typeName(), typeName) == 0 ? *static_cast<Handle *const *>(handle.constData())
                                                                         : nullptr;
}

// How the driver reads a column of the text protocol: integers from their digits, text
// through its codec, the rest (binary, decimals, dates) its own way.
bool isIntegerField(const MYSQL_FIELD &field)
{
    switch (field.type) {
    case MYSQL_TYPE_TINY:
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_YEAR:
        return true;
    case MYSQL_TYPE_LONGLONG:
        return !(field.flags & UNSIGNED_FLAG);  // past 2^63 the driver's value is no qint64
    default:
        return false;
    }
}

bool isTextField(const MYSQL_FIELD &field)
{
    switch (field.type) {
    case MYSQL_TYPE_STRING:
    case MYSQL_TYPE_VAR_STRING:
    case MYSQL_TYPE_VARCHAR:
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
        return !(field.flags & BINARY_FLAG);
    default:
        return false;
    }
}

// Whether the driver decodes text of this character set as UTF-8, by the codec it picks for
// it. An unknown name makes Qt search every codec, so the answer is kept per thread.
bool decodesAsUtf8(const char *charset)
{
    thread_local QByteArray lastCharset;
    thread_local bool lastUtf8 = false;
    if (lastCharset.isNull() || lastCharset != charset) {
        QTextCodec *codec = QTextCodec::codecForName(charset);
        lastUtf8 = (codec ? codec : QTextCodec::codecForLocale())->mibEnum() == 106;
        lastCharset = charset;
    }
    return lastUtf8;
}

} // namespace

SqlRow::SqlRow(QSqlQuery &query)
    : m_query(query)
{
    const QSqlResult *result = query.result();
    if (!result || !query.isActive() || !query.isSelect())
        return;
    m_result = driverHandle<MYSQL_RES>(result->handle(), "MYSQL_RES*");
    MYSQL *mysql = query.driver() ? driverHandle<MYSQL>(query.driver()->handle(), "MYSQL*") : nullptr;
    // A prepared statement's handle is its metadata: no rows there.
    if (!m_result || !mysql || !m_result->data)
        return;
    m_utf8 = decodesAsUtf8(mysql_character_set_name(mysql));
    const MYSQL_FIELD *fields = mysql_fetch_fields(m_result);
    const unsigned int count = mysql_num_fields(m_result);
    m_kinds.reserve(int(count));
    for (unsigned int i = 0; i < count; ++i)
        m_kinds.append(isIntegerField(fields[i]) ? Integer : isTextField(fields[i]) ? Text : Other);
}

bool SqlRow::next()
{
    m_row = nullptr;
    if (!m_query.next())
        return false;
    // The query moved the client's cursor: its current row is the one the query is on.
    if (!m_kinds.isEmpty()) {
        m_row = m_result->current_row;
        m_lengths = m_row ? mysql_fetch_lengths(m_result) : nullptr;
    }
    return true;
}

bool SqlRow::isNull(int column) const
{
    return kind(column) != Other ? m_row[column] == nullptr : m_query.isNull(column);
}

QVariant SqlRow::value(int column) const
{
    return m_query.value(column);
}

qint64 SqlRow::toLongLong(int column) const
{
    if (kind(column) != Integer)
        return m_query.value(column).toLongLong();
    const char *digits = m_row[column];
    if (!digits)
        return 0;
    const char *const end = digits + m_lengths[column];
    const bool negative = digits != end && *digits == '-';
    quint64 magnitude = 0;
    for (digits += negative ? 1 : 0; digits != end; ++digits)
        magnitude = magnitude * 10 + quint64(*digits - '0');
    // Wrapping as the driver's 64-bit values convert to smaller ones.
    return negative ? qint64(0 - magnitude) : qint64(magnitude);
}

bool SqlRow::toBool(int column) const
{
    return kind(column) == Integer ? toLongLong(column) != 0 : m_query.value(column).toBool();
}

void SqlRow::writeText(JsonWriter &json, int column) const
{
    if (kind(column) == Text) {
        if (m_row[column] == nullptr)
            return json.string(QString());
        if (m_utf8 && json.plainUtf8String(m_row[column], int(m_lengths[column])))
            return;
    }
    json.string(m_query.value(column).toString());
}

void SqlRow::writeStored(JsonWriter &json, int column) const
{
    const Kind how = kind(column);
    if (how != Other && m_row[column] == nullptr)
        json.null();
    else if (how == Integer)
        json.integer(toLongLong(column));
    else if (how == Text)
        writeText(json, column);
    else
        json.stored(m_query.value(column));
}
