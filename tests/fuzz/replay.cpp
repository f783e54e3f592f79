// Every file of one fuzz target's corpus through that target's entry function, in the normal
// build: an input that once crashed stays a regression case. The target's own checks abort
// on a wrong answer; Qt Test then names the file that did it.
#include "fuzzfixture.h"

#include <QtTest>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

class ReplayCorpus : public QObject
{
    Q_OBJECT

private slots:
    void cleanupTestCase() { FuzzFixture::release(); }
    void replay_data()
    {
        QTest::addColumn<QString>("path");
        const QDir corpus(FUZZ_CORPUS);
        QVERIFY2(!corpus.isEmpty(), FUZZ_CORPUS " holds no inputs");
        for (const QString &file : corpus.entryList(QDir::Files, QDir::Name))
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
