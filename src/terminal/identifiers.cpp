#include "terminal/identifiers.h"

#include <QDateTime>

#include <array>

namespace {

const char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Writes v's decimal digits so that they end at `end`; returns where they begin.
char *writeDigits(uint v, char *end)
{
    do {
        *--end = char('0' + v % 10);
        v /= 10;
    } while (v != 0);
    return end;
}

} // namespace

// The composite identifier: two numbers of one row as "first.second", padded so that the
// plain form's length is a multiple of 3 and its Base64 needs no pad character. Formatted in
// place: lists call this once per row.
QString encodeId(uint first, uint second)
{
    char a[10];
    char b[10];
    const char *aBegin = writeDigits(first, a + sizeof a);
    const char *bBegin = writeDigits(second, b + sizeof b);
    const int aLen = int(a + sizeof a - aBegin);
    const int bLen = int(b + sizeof b - bBegin);
    const int r = (aLen + bLen + 1) % 3;

    char plain[24];  // at most "-4294967295.04294967295"
    int n = 0;
    if (r == 1)
        plain[n++] = '-';
    for (const char *p = aBegin; p != a + sizeof a; ++p)
        plain[n++] = *p;
    plain[n++] = '.';
    if (r != 0)
        plain[n++] = '0';
    for (const char *p = bBegin; p != b + sizeof b; ++p)
        plain[n++] = *p;

    QString text(n / 3 * 4, Qt::Uninitialized);
    QChar *out = text.data();
    for (int i = 0; i < n; i += 3) {
        const uint group = uint(uchar(plain[i])) << 16 | uint(uchar(plain[i + 1])) << 8 | uchar(plain[i + 2]);
        *out++ = QLatin1Char(kBase64Alphabet[group >> 18]);
        *out++ = QLatin1Char(kBase64Alphabet[(group >> 12) & 63]);
        *out++ = QLatin1Char(kBase64Alphabet[(group >> 6) & 63]);
        *out++ = QLatin1Char(kBase64Alphabet[group & 63]);
    }
    return text;
}

// What QByteArray::fromBase64(text.toUtf8()) gives, without the UTF-8 copy: Qt skips every
// byte outside the alphabet ('=' included), and a non-ASCII character only makes such bytes.
QByteArray decodeBase64(const QString &text)
{
    static const auto values = [] {
        std::array<qint8, 128> t;
        t.fill(-1);
        for (int i = 0; i < 64; ++i)
            t[uchar(kBase64Alphabet[i])] = qint8(i);
        return t;
    }();
    QByteArray result(int(qint64(text.size()) * 3 / 4), Qt::Uninitialized);
    char *out = result.data();
    int count = 0;
    uint buffer = 0;
    int bits = 0;
    const ushort *in = text.utf16();
    const ushort *const end = in + text.size();
    for (; in != end; ++in) {
        // Whole groups of four valid characters at a group boundary, the usual case, at once.
        while (bits == 0 && end - in >= 4 && (in[0] | in[1] | in[2] | in[3]) < 128) {
            const int a = values[in[0]], b = values[in[1]], c = values[in[2]], d = values[in[3]];
            if ((a | b | c | d) < 0)
                break;
            out[count++] = char(a << 2 | b >> 4);
            out[count++] = char((b & 15) << 4 | c >> 2);
            out[count++] = char((c & 3) << 6 | d);
            in += 4;
        }
        if (in == end)
            break;
        if (*in >= 128 || values[*in] < 0)
            continue;
        buffer = (buffer << 6) | uint(values[*in]);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out[count++] = char(buffer >> bits);
            buffer &= (1u << bits) - 1;
        }
    }
    result.truncate(count);
    return result;
}

bool decodeId(const QString &text, uint &first, uint &second)
{
    first = 0;
    second = 0;
    if (text.isEmpty())
        return false;
    // Terminals send the web form, '-', '_' and '@' for '+', '/' and '='; the pads are skipped
    // as any character outside the alphabet.
    QString standard = text;
    standard.replace(QLatin1Char('-'), QLatin1Char('+')).replace(QLatin1Char('_'), QLatin1Char('/'));
    const QByteArray decoded = decodeBase64(standard);
    const QString plain = QString::fromLatin1(decoded.constData());  // up to the first NUL
    if (plain.isEmpty() || !plain.contains(QLatin1Char('.')))
        return false;
    const QStringList parts = plain.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    if (parts.size() < 2)
        return false;
    first = uint(qAbs(qint64(parts.at(0).toInt(nullptr, 10))));  // the absolute value undoes the filler
    second = parts.at(1).toUInt(nullptr, 10);
    return first != 0 && second != 0;
}

QString secsToIsoDateTime(qint64 secs)
{
    return QDateTime::fromSecsSinceEpoch(secs).toString(Qt::ISODate);
}

QString secsToIsoDate(qint64 secs)
{
    return QDateTime::fromSecsSinceEpoch(secs).date().toString(Qt::ISODate);
}

qint64 isoToSecs(const QString &text)
{
    return QDateTime::fromString(text, Qt::ISODate).toSecsSinceEpoch();
}
