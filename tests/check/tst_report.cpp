#include "check/report.h"

#include <QtTest>

using State = CardVerdict::State;
using States = QVector<State>;
Q_DECLARE_METATYPE(States)

namespace {

CardVerdict verdictOf(int card, State state)
{
    CardVerdict verdict;
    verdict.card = card;
    verdict.root = "/media/card";
    verdict.state = state;
    verdict.files = 1;
    if (state == State::Safe)
        verdict.verified = {{"A.MOV", "A_cam1.MOV", 1, "hash", {}}};
    if (state == State::Finding)
        verdict.findings = {{"A.MOV", QStringLiteral("no copy of it is there")}};
    return verdict;
}

/// What a check of cards 1, 2, ... in these states found.
CheckResult resultOf(const States &states)
{
    CheckResult result;
    result.names = QStringList{QString(), QString(), QString()};
    result.destination = QStringLiteral("/dive");
    result.begun = QDateTime(QDate(2026, 11, 23), QTime(14, 5), Qt::LocalTime).toUTC();
    for (int i = 0; i < states.size(); ++i) {
        result.names[i] = QStringLiteral("360_0%1 (/media/360_0%1)").arg(i + 1);
        result.verdicts.push_back(verdictOf(i + 1, states.at(i)));
    }
    return result;
}

QStringList tonesOf(const CheckReport &report)
{
    const QVariantMap shown = report.shown();
    QStringList tones{shown.value(QStringLiteral("tone")).toString()};
    for (const QVariant &card : shown.value(QStringLiteral("cards")).toList())
        tones.append(card.toMap().value(QStringLiteral("tone")).toString());
    return tones;
}

} // namespace

class ReportTest : public QObject
{
    Q_OBJECT

private slots:
    void verdict_data();
    void verdict();
    void onlySafeCardsAreCalledSafe();
    void stopped();
    void refused();
    void whatAndWhen();
    void seal_data();
    void seal();
    void copiesThatCouldNotBeListed();
    void longReports();
};

void ReportTest::verdict_data()
{
    QTest::addColumn<States>("states");
    QTest::addColumn<QString>("headline");
    QTest::addColumn<QStringList>("tones");
    QTest::newRow("all safe") << States{State::Safe, State::Safe, State::Safe}
                              << "Safe to erase: cards 1, 2 and 3"
                              << QStringList{"safe", "safe", "safe", "safe"};
    QTest::newRow("one card") << States{State::Safe} << "Safe to erase: card 1"
                              << QStringList{"safe", "safe", "none", "none"};
    QTest::newRow("a finding") << States{State::Safe, State::Finding} << "Do NOT erase card 2"
                               << QStringList{"danger", "safe", "danger", "none"};
    QTest::newRow("a finding outweighs the rest")
        << States{State::NotChecked, State::Finding, State::Empty} << "Do NOT erase card 2"
        << QStringList{"danger", "caution", "danger", "caution"};
    QTest::newRow("not checked") << States{State::Safe, State::NotChecked, State::Empty}
                                 << "Do NOT erase: not checked"
                                 << QStringList{"caution", "safe", "caution", "caution"};
    QTest::newRow("nothing on a card")
        << States{State::Safe, State::Empty, State::Safe} << "There is nothing on card 2"
        << QStringList{"caution", "safe", "caution", "safe"};
    QTest::newRow("nothing on any") << States{State::Empty, State::Empty}
                                    << "There is nothing on cards 1 and 2"
                                    << QStringList{"caution", "caution", "caution", "none"};
    QTest::newRow("no card") << States{} << "Do NOT erase: not checked"
                             << QStringList{"caution", "none", "none", "none"};
}

void ReportTest::verdict()
{
    QFETCH(States, states);
    QFETCH(QString, headline);
    QFETCH(QStringList, tones);
    const CheckReport report = reportOf(resultOf(states));
    QCOMPARE(report.headline, headline);
    QCOMPARE(tonesOf(report), tones);
}

/// Every combination of three cards.
void ReportTest::onlySafeCardsAreCalledSafe()
{
    const States all{State::Safe, State::Finding, State::NotChecked, State::Empty};
    for (const State one : all) {
        for (const State two : all) {
            for (const State three : all) {
                const States states{one, two, three};
                const CheckReport report = reportOf(resultOf(states));
                const bool safe = states.count(State::Safe) == states.size();
                QCOMPARE(report.tone == CheckReport::Tone::Safe, safe);
                QCOMPARE(report.headline.contains(QStringLiteral("Safe"), Qt::CaseInsensitive), safe);
                for (int i = 0; i < states.size(); ++i) {
                    const CheckReport::Card &card = report.cards.at(i);
                    QCOMPARE(card.tone == CheckReport::Tone::Safe, states.at(i) == State::Safe);
                    QCOMPARE(card.text.endsWith(QStringLiteral(": Safe to erase")),
                             states.at(i) == State::Safe);
                }
            }
        }
    }
}

void ReportTest::stopped()
{
    CheckResult result = resultOf({State::Safe});
    result.stopped = true;
    const CheckReport report = reportOf(result);
    QCOMPARE(report.headline, QString("Stopped. Nothing is proven."));
    QCOMPARE(tonesOf(report), QStringList{"caution"});
    QVERIFY(!report.text().contains(QStringLiteral("Safe")));
}

void ReportTest::refused()
{
    CheckResult result = resultOf({});
    result.refusal = QStringLiteral("/dive is no folder.");
    const CheckReport report = reportOf(result);
    QCOMPARE(report.headline, QString("Nothing was checked"));
    QCOMPARE(report.details, result.refusal);
    QCOMPARE(tonesOf(report), QStringList{"caution"});
}

void ReportTest::whatAndWhen()
{
    QCOMPARE(reportOf(resultOf({State::Safe, State::Finding})).text(),
             QString("Do NOT erase card 2\n"
                     "Copies in /dive, checked 2026-11-23 14:05.\n"
                     "Card 1: Safe to erase - 360_01 (/media/360_01)\n"
                     "Card 2: do NOT erase - 360_02 (/media/360_02)\n"
                     "Card 3: none chosen\n"
                     "\n"
                     "Card 1: 1 of 1 files are in /dive, both read from disk. Safe to erase.\n"
                     "Card 2: do NOT erase: 0 of 1 files are in /dive, both read from disk.\n"
                     "  A.MOV: no copy of it is there\n"));
}

void ReportTest::seal_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("sealText");
    QTest::addColumn<QStringList>("tones");
    const QStringList safe{"safe", "safe", "none", "none"};
    QTest::newRow("sealed") << "sealed"
                            << "Sealed: 2 new, 1 before." << safe;
    QTest::newRow("removed") << "removed"
                             << "Nothing was sealed: /dive was removed" << safe;
    QTest::newRow("failed") << "failed"
                            << "Nothing was sealed: no room" << safe;
    QTest::newRow("left out") << "left out"
                              << "Some files could not be sealed, see below." << safe;
    QTest::newRow("altered") << "altered"
                             << "Files are not as they were sealed, see below."
                             << QStringList{"danger", "danger", "none", "none"};
    QTest::newRow("altered and failed")
        << "altered and failed"
        << "Nothing was sealed: no room" << QStringList{"danger", "danger", "none", "none"};
}

void ReportTest::seal()
{
    QFETCH(QString, kind);
    QFETCH(QString, sealText);
    QFETCH(QStringList, tones);
    CheckResult result = resultOf({kind.contains(QLatin1String("altered")) ? State::Finding : State::Safe});
    result.seal = true;
    if (kind != QLatin1String("removed")) {
        SealResult sealed;
        sealed.added = 2;
        sealed.known = 1;
        if (kind.contains(QLatin1String("failed")))
            sealed.problem = QStringLiteral("no room");
        if (kind.contains(QLatin1String("altered")))
            sealed.altered = QStringList{"A_cam1.MOV"};
        if (kind == QLatin1String("left out"))
            sealed.leftOut = QStringList{"A_cam1.MOV"};
        result.sealed = sealed;
    }
    const CheckReport report = reportOf(result);
    QCOMPARE(report.sealText, sealText);
    QCOMPARE(tonesOf(report), tones);
    QCOMPARE(report.headline.startsWith(QStringLiteral("Safe")), tones.first() == QLatin1String("safe"));
}

void ReportTest::copiesThatCouldNotBeListed()
{
    CheckResult result = resultOf({State::Finding});
    result.unreadable = {{"reef", QStringLiteral("Permission denied")}};
    QVERIFY(reportOf(result).text().endsWith(QStringLiteral("\n/dive: reef: Permission denied\n")));
}

void ReportTest::longReports()
{
    constexpr int count = 100000;
    CheckResult result = resultOf({State::Finding, State::Finding});
    result.verdicts.front().findings.assign(count,
                                            {"<b>A</b>.MOV", QStringLiteral("no copy of it is there")});
    const CheckReport report = reportOf(result);
    const QStringList shown =
        report.shown().value(QStringLiteral("text")).toString().split(QLatin1Char('\n'));
    QVERIFY(shown.size() < 1000);
    QCOMPARE(shown.filter(QStringLiteral("  ... and ")), QStringList{"  ... and 99701 more"});
    // The second card's are not crowded out.
    QCOMPARE(shown.last(), QString("  A.MOV: no copy of it is there"));
    QCOMPARE(report.text().count(QStringLiteral("  <b>A</b>.MOV: ")), count);
}

QTEST_GUILESS_MAIN(ReportTest)
#include "tst_report.moc"
