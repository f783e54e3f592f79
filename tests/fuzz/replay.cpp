// Every file of one fuzz target's corpus through that target's entry function, in the normal
// build: an input that once crashed stays a regression case. Seeded random inputs follow. The
// target's own checks abort on a wrong answer; Qt Test then names the row that did it.
#include <QRandomGenerator>
#include <QtTest>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
// Defined by a target that keeps state (the database-backed one).
extern "C" void fuzzRelease() __attribute__((weak));

class ReplayCorpus : public QObject
{
    Q_OBJECT

private slots:
    void cleanupTestCase()
    {
        if (fuzzRelease)
            fuzzRelease();
    }
    void replay_data()
    {
        QTest::addColumn<QByteArray>("input");
        const QDir corpus(FUZZ_CORPUS);
        QVERIFY2(!corpus.isEmpty(), FUZZ_CORPUS " holds no inputs");
        for (const QString &name : corpus.entryList(QDir::Files, QDir::Name)) {
            QFile file(corpus.filePath(name));
            QVERIFY2(file.open(QIODevice::ReadOnly), qPrintable(name));
            QTest::newRow(qPrintable(name)) << file.readAll();
        }
        QRandomGenerator random(20261124);
        for (int i = 0; i < 300; ++i) {
            QByteArray bytes(int(random.bounded(1, 400)), Qt::Uninitialized);
            for (char &byte : bytes)
                byte = char(random.bounded(256));
            QTest::addRow("random %d", i) << bytes;
        }
    }
    void replay()
    {
        QFETCH(QByteArray, input);
        QCOMPARE(LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(input.constData()), size_t(input.size())), 0);
    }
};

QTEST_GUILESS_MAIN(ReplayCorpus)
#include "replay.moc"
