#ifndef FUZZFIXTURE_H
#define FUZZFIXTURE_H

#include <QByteArray>
#include <QList>
#include <QPair>

// The one customer every database-backed fuzz target talks to: an ApiFixture against the
// private MariaDB with a terminal, a person and an entrance type, made on first use and
// dropped at exit. Inputs name them by placeholders, so seeds stay valid across runs:
//   $TOKEN  customer token   $KEY  terminal key   $TID  terminal id   $UID  person id
class FuzzFixture
{
public:
    // Set up on first call; aborts when the database cannot be reached, as a target is
    // useless without it.
    static FuzzFixture &instance();
    // Drops the scratch databases now, if they were made; for a caller whose application
    // object ends before exit() (an ordinary test), as the drop needs Qt's SQL plug-in.
    static void release();

    // A request through buildResponse as the host makes it (the URL from the raw target),
    // with the placeholders replaced; returns the response text, and aborts when it is not
    // one whole HTTP response.
    QByteArray call(const QByteArray &method, const QByteArray &target, const QList<QByteArray> &headers,
                    const QByteArray &body);

private:
    FuzzFixture();
    QByteArray substitute(QByteArray raw) const;

    QList<QPair<QByteArray, QByteArray>> m_placeholders;
};

#endif
