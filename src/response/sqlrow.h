#ifndef SQLROW_H
#define SQLROW_H

#include <QVariant>
#include <QVector>

class JsonWriter;
class QSqlQuery;
struct st_mysql_res;

// The rows of an executed statement, read where the MariaDB client keeps them: a column goes
// to JSON from its bytes, with no QVariant or QString per value. That needs a text result of
// the MySQL driver (QSqlQuery::exec of a statement text) and a column of a plain integer or
// text type; any other column or result is read through the query's values. Either way the
// outcome is the driver's value converted as the comments say.
class SqlRow
{
public:
    explicit SqlRow(QSqlQuery &query);
    Q_DISABLE_COPY(SqlRow)

    // Moves the query to its next row; false after the last.
    bool next();

    bool isNull(int column) const;
    // The driver's value itself, for the few reads that keep one.
    QVariant value(int column) const;
    // As value(column).toLongLong(), toUInt(), toInt() and toBool().
    qint64 toLongLong(int column) const;
    uint toUInt(int column) const { return uint(toLongLong(column)); }
    int toInt(int column) const { return int(toLongLong(column)); }
    bool toBool(int column) const;
    // As json.string(value(column).toString()) and json.stored(value(column)).
    void writeText(JsonWriter &json, int column) const;
    void writeStored(JsonWriter &json, int column) const;

private:
    enum Kind { Other, Integer, Text };
    Kind kind(int column) const { return m_row && column >= 0 && column < m_kinds.size() ? m_kinds.at(column) : Other; }

    QSqlQuery &m_query;
    st_mysql_res *m_result = nullptr;
    QVector<Kind> m_kinds;  // by column; empty when the result cannot be read in place
    char **m_row = nullptr;  // the current row's values, null for SQL NULL
    unsigned long *m_lengths = nullptr;
    bool m_utf8 = false;  // the driver decodes this connection's text as UTF-8
};

#endif
