// Every file of one fuzz target's corpus through that target's entry function, in the normal
// build: an input that once crashed stays a regression case. The target's own checks abort
// on a wrong answer; Qt Test then names the file that did it.
#include "fuzzfixture.h"

#include <QDir>
#include <QFile>
#include <QtTest>

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

class ReplayCorpus : public QObject
{
    Q_OBJECT

private slots:
    void cleanupTestCase() { FuzzFixture::release(); }
    void replay_data()
    {
        QTest::addColumn<QString>("path");
        const QDir corpus(QStringLiteral(FUZZ_CORPUS));
        const QStringList files = corpus.entryList(QDir::Files, QDir::Name);
        QVERIFY2(!files.isEmpty(), FUZZ_CORPUS " holds no inputs");
        for (const QString &file : files)
            QTest::newRow(qPrintable(file)) << corpus.filePath(file);
    }

    void replay()
    {
        QFETCH(QString, path);
        QFile file(path);
        QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(path));
        const QByteArray input = file.readAll();
        QCOMPARE(LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size())), 0);
    }
};

QTEST_GUILESS_MAIN(ReplayCorpus)
#include "replay.moc"
