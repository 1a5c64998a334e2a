#include "checks/takes.h"

#include "cards/cardlisting.h"
#include "checks/exif.h"
#include "checks/movie.h"
#include "platform/stopflag.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <tuple>
#include <utility>
#include <vector>

namespace {

/// Movie headers, and photos without a fraction, count whole seconds.
constexpr qint64 resolution = 1000;
/// Cameras start within a second of each other. Clocks drift against each other by a second or so a day.
constexpr qint64 sameMoment = 5000;
/// Neither a clock nor a length that differs by this is worth a line.
constexpr qint64 negligible = 2000;

const QString movieKind = QStringLiteral("MOV");

/// At one moment, what each camera recorded: indexes of recordings, -1 for none.
struct Moment
{
    QString kind;
    std::optional<qint64> start; ///< by the clock of the camera that has most recordings
    std::array<int, cameraCount> members = {-1, -1, -1};
};

/// A recording that may be of a moment.
struct Pair
{
    int recording = 0;
    int moment = 0;
    qint64 apart = 0; ///< ms, signed: beyond the offset of the clocks
    bool sameName = false;

    /// Best first: a difference within the resolution says nothing, so that the names decide there.
    [[nodiscard]] auto rank() const
    {
        const qint64 distance = std::abs(apart);
        return std::make_tuple(std::max(distance, resolution), !sameName, distance, moment, recording);
    }
};

/// How well an offset of a camera's clock explains its recordings.
struct Fit
{
    qint64 offset = 0;
    int matches = 0;
    int evidence = 0; ///< matches of equal length
    int names = 0;

    /// Clocks that agree don't do so by chance: that outweighs one more match, as takes at regular intervals
    /// have it if a camera missed the first one and the others the last.
    [[nodiscard]] bool clocksAgree() const { return matches > 0 && std::abs(offset) <= negligible; }
    [[nodiscard]] auto rank() const
    {
        return std::make_tuple(matches + clocksAgree(), evidence + 2 * clocksAgree(), names,
                               -std::abs(offset));
    }
    /// Whether the recordings may as well lie as `other` has it.
    [[nodiscard]] bool isRivalledBy(const Fit &other) const
    {
        const int needed = clocksAgree() ? matches + 1 : std::max(matches - 1, 1);
        return other.matches >= needed && other.evidence + 1 >= evidence &&
               std::abs(other.offset - offset) > sameMoment;
    }
};

class Matcher
{
public:
    explicit Matcher(const QVector<Recording> &recordings)
        : recordings_(recordings)
    {
    }

    [[nodiscard]] TakesReport run();

private:
    [[nodiscard]] std::vector<int> timed(int camera) const;
    void addCamera(int camera);
    void addUntimed();
    [[nodiscard]] std::vector<qint64> likelyOffsets(const std::vector<int> &own) const;
    [[nodiscard]] std::vector<Pair> pairsAt(qint64 offset, const std::vector<int> &own) const;
    [[nodiscard]] Fit fitOf(qint64 offset, const std::vector<int> &own) const;
    [[nodiscard]] std::vector<int> momentsByTime(const QString &kind) const;
    [[nodiscard]] bool hasName(const Moment &moment, const QString &take) const;
    [[nodiscard]] qint64 lengthOf(const Moment &moment) const;
    void compareClocks(TakesReport *report) const;
    void judgePairing(TakesReport *report) const;
    void judge(const Moment &moment, TakesReport *report) const;
    [[nodiscard]] TakeFinding finding(TakeFinding::Kind kind, int camera, const Moment &moment,
                                      const TakesReport &report) const;

    const QVector<Recording> &recordings_;
    std::vector<Moment> moments_;
    std::array<std::optional<qint64>, cameraCount> offsets_; ///< against the camera that has most recordings
    std::array<bool, cameraCount> rivalled_ = {}; ///< another offset explains the recordings as well
    std::array<bool, cameraCount> present_ = {};
};

/// The recordings of a camera whose times are known, in the order of time.
std::vector<int> Matcher::timed(int camera) const
{
    std::vector<int> own;
    for (int i = 0; i < recordings_.size(); ++i) {
        if (recordings_.at(i).camera == camera && recordings_.at(i).time.problem.isEmpty())
            own.push_back(i);
    }
    std::sort(own.begin(), own.end(), [this](int a, int b) {
        const Recording &first = recordings_.at(a);
        const Recording &second = recordings_.at(b);
        return std::tie(first.time.start, first.path) < std::tie(second.time.start, second.path);
    });
    return own;
}

bool Matcher::hasName(const Moment &moment, const QString &take) const
{
    return std::any_of(moment.members.begin(), moment.members.end(),
                       [&](int member) { return member >= 0 && recordings_.at(member).take == take; });
}

/// The length of the longest recording of a moment.
qint64 Matcher::lengthOf(const Moment &moment) const
{
    qint64 longest = -1;
    for (const int member : moment.members) {
        if (member >= 0)
            longest = std::max(longest, recordings_.at(member).time.length);
    }
    return longest;
}

std::vector<int> Matcher::momentsByTime(const QString &kind) const
{
    std::vector<int> sorted;
    for (std::size_t i = 0; i < moments_.size(); ++i) {
        if (moments_[i].kind == kind)
            sorted.push_back(static_cast<int>(i));
    }
    std::sort(sorted.begin(), sorted.end(), [this](int a, int b) {
        return moments_[static_cast<std::size_t>(a)].start < moments_[static_cast<std::size_t>(b)].start;
    });
    return sorted;
}

/// The offsets at which most recordings meet a moment.
std::vector<qint64> Matcher::likelyOffsets(const std::vector<int> &own) const
{
    constexpr std::size_t mostOffsets = 16;
    // With more recordings than anybody takes in a day, each is compared with those near it in the order.
    constexpr qint64 mostDifferences = 1'000'000;
    const qint64 reach = std::max<qint64>(100, mostDifferences / static_cast<qint64>(own.size() + 1));

    std::vector<qint64> differences; // in seconds
    QHash<QString, std::vector<int>> sorted;
    QHash<QString, qint64> next;
    for (const int recording : own) {
        const QString kind = recordings_.at(recording).kind();
        if (!sorted.contains(kind))
            sorted.insert(kind, momentsByTime(kind));
        const std::vector<int> &candidates = sorted[kind];
        const qint64 place = next[kind]++;
        const qint64 last = std::min<qint64>(static_cast<qint64>(candidates.size()), place + reach + 1);
        for (qint64 i = std::max<qint64>(0, place - reach); i < last; ++i) {
            const int moment = candidates[static_cast<std::size_t>(i)];
            const qint64 difference =
                recordings_.at(recording).time.start - *moments_[static_cast<std::size_t>(moment)].start;
            differences.push_back(
                static_cast<qint64>(std::floor(static_cast<double>(difference) / 1000 + 0.5)));
        }
    }
    std::sort(differences.begin(), differences.end());

    // How many lie within a second of each.
    std::vector<std::pair<int, qint64>> counts;
    auto from = differences.cbegin();
    auto to = differences.cbegin();
    for (auto at = differences.cbegin(); at != differences.cend();
         at = std::upper_bound(at, differences.cend(), *at)) {
        while (*from < *at - 1)
            ++from;
        while (to != differences.cend() && *to <= *at + 1)
            ++to;
        counts.emplace_back(static_cast<int>(to - from), *at);
    }
    std::sort(counts.begin(), counts.end(), [](const auto &a, const auto &b) {
        return std::make_tuple(-a.first, std::abs(a.second)) < std::make_tuple(-b.first, std::abs(b.second));
    });

    std::vector<qint64> offsets;
    for (const auto &[count, seconds] : counts) {
        const qint64 offset = seconds * 1000;
        const bool known = std::any_of(offsets.begin(), offsets.end(),
                                       [&](qint64 other) { return std::abs(other - offset) <= resolution; });
        if (!known)
            offsets.push_back(offset);
        if (offsets.size() == mostOffsets)
            break;
    }
    return offsets;
}

/// Which recordings are of which moments if the camera's clock is `offset` ahead.
std::vector<Pair> Matcher::pairsAt(qint64 offset, const std::vector<int> &own) const
{
    std::vector<Pair> possible;
    QHash<QString, std::vector<int>> sorted;
    for (const int recording : own) {
        const Recording &file = recordings_.at(recording);
        const QString kind = file.kind();
        if (!sorted.contains(kind))
            sorted.insert(kind, momentsByTime(kind));
        const std::vector<int> &candidates = sorted[kind];
        const qint64 start = file.time.start - offset;
        auto at = std::lower_bound(candidates.begin(), candidates.end(), start - sameMoment,
                                   [this](int moment, qint64 time) {
                                       return *moments_[static_cast<std::size_t>(moment)].start < time;
                                   });
        for (; at != candidates.end(); ++at) {
            const Moment &moment = moments_[static_cast<std::size_t>(*at)];
            if (*moment.start > start + sameMoment)
                break;
            possible.push_back({recording, *at, start - *moment.start, hasName(moment, file.take)});
        }
    }
    std::sort(possible.begin(), possible.end(),
              [](const Pair &a, const Pair &b) { return a.rank() < b.rank(); });

    std::vector<Pair> pairs;
    QSet<int> recordings;
    QSet<int> moments;
    for (const Pair &pair : possible) {
        if (recordings.contains(pair.recording) || moments.contains(pair.moment))
            continue;
        recordings.insert(pair.recording);
        moments.insert(pair.moment);
        pairs.push_back(pair);
    }
    return pairs;
}

/// Refines an offset to the middle of what it matches, and tells how well it does.
Fit Matcher::fitOf(qint64 offset, const std::vector<int> &own) const
{
    std::vector<Pair> pairs = pairsAt(offset, own);
    if (pairs.empty())
        return {};
    const auto middle = pairs.begin() + static_cast<std::ptrdiff_t>(pairs.size() / 2);
    std::nth_element(pairs.begin(), middle, pairs.end(),
                     [](const Pair &a, const Pair &b) { return a.apart < b.apart; });
    Fit fit;
    fit.offset = offset + middle->apart;
    pairs = pairsAt(fit.offset, own);
    fit.matches = static_cast<int>(pairs.size());
    for (const Pair &pair : pairs) {
        const qint64 length = recordings_.at(pair.recording).time.length;
        const qint64 other = lengthOf(moments_[static_cast<std::size_t>(pair.moment)]);
        fit.evidence += length >= 0 && other >= 0 && std::abs(length - other) <= negligible;
        fit.names += pair.sameName;
    }
    return fit;
}

/// Adds the recordings of a camera to the moments at which others recorded, or as moments of their own.
void Matcher::addCamera(int camera)
{
    const std::vector<int> own = timed(camera);
    Fit best;
    std::vector<Fit> fits;
    for (const qint64 offset : likelyOffsets(own)) {
        fits.push_back(fitOf(offset, own));
        if (best.rank() < fits.back().rank())
            best = fits.back();
    }
    const auto place = static_cast<std::size_t>(camera - 1);
    rivalled_.at(place) =
        std::any_of(fits.begin(), fits.end(), [&](const Fit &fit) { return best.isRivalledBy(fit); });
    if (best.matches > 0)
        offsets_.at(place) = best.offset;
    QSet<int> matched;
    for (const Pair &pair : pairsAt(best.offset, own)) {
        moments_[static_cast<std::size_t>(pair.moment)].members.at(place) = pair.recording;
        matched.insert(pair.recording);
    }
    for (const int recording : own) {
        if (matched.contains(recording))
            continue;
        Moment moment;
        moment.kind = recordings_.at(recording).kind();
        moment.start = recordings_.at(recording).time.start - best.offset;
        moment.members.at(place) = recording;
        moments_.push_back(moment);
    }
}

/// Adds the recordings whose times are unknown where their names belong.
void Matcher::addUntimed()
{
    QHash<QString, std::vector<std::size_t>> byName;
    for (std::size_t i = 0; i < moments_.size(); ++i) {
        for (const int member : moments_[i].members) {
            if (member >= 0)
                byName[recordings_.at(member).take].push_back(i);
        }
    }
    for (int i = 0; i < recordings_.size(); ++i) {
        const Recording &file = recordings_.at(i);
        if (file.time.problem.isEmpty())
            continue;
        const auto place = static_cast<std::size_t>(file.camera - 1);
        std::vector<std::size_t> &known = byName[file.take];
        const auto free = std::find_if(known.begin(), known.end(), [&](std::size_t moment) {
            return moments_[moment].members.at(place) < 0;
        });
        if (free != known.end()) {
            moments_[*free].members.at(place) = i;
            continue;
        }
        known.push_back(moments_.size());
        Moment moment;
        moment.kind = file.kind();
        moment.members.at(place) = i;
        moments_.push_back(moment);
    }
}

/// The clock in the middle is the one that the others are compared with.
void Matcher::compareClocks(TakesReport *report) const
{
    std::vector<qint64> known;
    for (const std::optional<qint64> &offset : offsets_) {
        if (offset)
            known.push_back(*offset);
    }
    if (known.empty())
        return;
    std::sort(known.begin(), known.end());
    const qint64 middle = known.at(known.size() / 2);
    // Of two clocks, or of several that agree, that of the first camera.
    const auto reference =
        std::find_if(offsets_.begin(), offsets_.end(), [&](const std::optional<qint64> &offset) {
            return offset && (known.size() == 2 || std::abs(*offset - middle) <= resolution);
        });
    report->reference = static_cast<int>(reference - offsets_.begin()) + 1;
    for (std::size_t i = 0; i < offsets_.size(); ++i) {
        if (offsets_.at(i))
            report->clocks.at(i) = static_cast<double>(*offsets_.at(i) - **reference) / 1000;
    }
}

/// Tells of cameras whose clocks' offsets are a guess.
void Matcher::judgePairing(TakesReport *report) const
{
    for (int camera = 1; camera <= cameraCount; ++camera) {
        const auto place = static_cast<std::size_t>(camera - 1);
        const auto shared = std::count_if(moments_.begin(), moments_.end(), [&](const Moment &moment) {
            return moment.start && moment.members.at(place) >= 0 &&
                   std::count_if(moment.members.begin(), moment.members.end(),
                                 [](int member) { return member >= 0; }) > 1;
        });
        TakeFinding uncertain = finding(TakeFinding::Kind::Uncertain, camera, {}, *report);
        if (rivalled_.at(place))
            uncertain.reason = QStringLiteral("its times fit two pairings");
        else if (shared == 1 && std::abs(report->clocks.at(place).value_or(0)) * 1000 > sameMoment)
            uncertain.reason = QStringLiteral("only one of them pairs, and the clocks differ");
        else
            continue;
        report->findings.append(uncertain);
    }
}

TakeFinding Matcher::finding(TakeFinding::Kind kind, int camera, const Moment &moment,
                             const TakesReport &report) const
{
    TakeFinding result;
    result.kind = kind;
    result.camera = camera;
    for (std::size_t i = 0; i < moment.members.size(); ++i) {
        if (moment.members.at(i) >= 0)
            result.files.at(i) = recordings_.at(moment.members.at(i)).path;
    }
    if (moment.start) {
        const std::optional<qint64> reference =
            report.reference == 0 ? std::nullopt
                                  : offsets_.at(static_cast<std::size_t>(report.reference - 1));
        result.start = *moment.start + reference.value_or(0);
    }
    return result;
}

void Matcher::judge(const Moment &moment, TakesReport *report) const
{
    using Kind = TakeFinding::Kind;
    QSet<QString> names;
    std::vector<int> absent;
    int members = 0;
    int first = 0;
    for (int camera = cameraCount; camera >= 1; --camera) {
        const int member = moment.members.at(static_cast<std::size_t>(camera - 1));
        if (member >= 0) {
            ++members;
            first = camera;
            names.insert(recordings_.at(member).take);
        } else if (present_.at(static_cast<std::size_t>(camera - 1))) {
            absent.insert(absent.begin(), camera);
        }
    }

    if (members == 1 && absent.size() == cameraCount - 1) {
        report->findings.append(finding(Kind::Unpaired, first, moment, *report));
    } else {
        for (const int camera : absent)
            report->findings.append(finding(Kind::Missing, camera, moment, *report));
    }
    if (names.size() > 1)
        report->findings.append(finding(Kind::Shifted, 0, moment, *report));

    const qint64 longest = lengthOf(moment);
    for (int camera = 1; camera <= cameraCount; ++camera) {
        const int member = moment.members.at(static_cast<std::size_t>(camera - 1));
        if (member < 0)
            continue;
        const RecordingTime &time = recordings_.at(member).time;
        if (!time.problem.isEmpty()) {
            TakeFinding untimed = finding(Kind::Untimed, camera, moment, *report);
            untimed.reason = time.problem;
            report->findings.append(untimed);
        } else if (time.length < 0 && recordings_.at(member).kind() == movieKind) {
            report->findings.append(finding(Kind::Unmeasured, camera, moment, *report));
        } else if (time.length >= 0 && longest - time.length > negligible) {
            TakeFinding brief = finding(Kind::Short, camera, moment, *report);
            brief.seconds = static_cast<double>(longest - time.length) / 1000;
            report->findings.append(brief);
        }
    }
}

TakesReport Matcher::run()
{
    for (const Recording &file : recordings_)
        present_.at(static_cast<std::size_t>(file.camera - 1)) = true;
    std::vector<int> cameras = {1, 2, 3};
    std::stable_sort(cameras.begin(), cameras.end(),
                     [this](int a, int b) { return timed(a).size() > timed(b).size(); });
    for (const int camera : cameras)
        addCamera(camera);
    // The first camera met nothing, for there was nothing yet: the others' clocks are compared with its.
    if (!timed(cameras.front()).empty())
        offsets_.at(static_cast<std::size_t>(cameras.front() - 1)) = 0;
    addUntimed();

    TakesReport report;
    report.takes = static_cast<int>(moments_.size());
    compareClocks(&report);
    if (report.takes > 0) {
        for (int camera = 1; camera <= cameraCount; ++camera) {
            if (!present_.at(static_cast<std::size_t>(camera - 1)))
                report.findings.append(finding(TakeFinding::Kind::Missing, camera, {}, report));
        }
    }
    judgePairing(&report);
    std::stable_sort(moments_.begin(), moments_.end(),
                     [](const Moment &a, const Moment &b) { return a.start < b.start; });
    for (const Moment &moment : moments_)
        judge(moment, &report);
    return report;
}

RecordingTime timeOf(const QString &path)
{
    RecordingTime time;
    // Unbuffered, so that no more is read than is needed: a card reader is slow.
    QFile file(path);
    if (file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        time = path.endsWith(movieKind) ? readMovieTime(file) : readPhotoTime(file);
    if (file.error() != QFileDevice::NoError)
        time.problem = QStringLiteral("can't be read: ") + file.errorString();
    return time;
}

/// Adds the recordings below `root`; `nameOf` gives camera and take of a relative path, camera 0 for other
/// files.
template <typename Naming>
void append(const QString &root, const Naming &nameOf, const StopFlag &stop, RecordingList *list)
{
    const CardListing listing = listCard(root, stop);
    list->unreadable += listing.unreadable;
    const QDir folder(root);
    for (const CardFile &file : listing.files) {
        if (stop.isRaised())
            return;
        const QString relative = folder.relativeFilePath(file.path);
        const auto [camera, take] = nameOf(relative);
        if (camera != 0)
            list->recordings.append({camera, relative, take, timeOf(file.path)});
    }
}

} // namespace

RecordingList recordingsOnCards(const std::array<QString, cameraCount> &cards, const StopFlag &stop)
{
    static const QRegularExpression recording(QStringLiteral("\\.(MOV|DNG|JPG)$"));
    RecordingList list;
    for (int camera = 1; camera <= cameraCount; ++camera) {
        const QString &card = cards.at(static_cast<std::size_t>(camera - 1));
        const auto nameOf = [camera](const QString &path) {
            return std::make_pair(recording.match(path).hasMatch() ? camera : 0, path);
        };
        if (!card.isEmpty())
            append(card, nameOf, stop, &list);
    }
    return list;
}

RecordingList recordingsIn(const QString &folder, const StopFlag &stop)
{
    static const QRegularExpression recording(QStringLiteral("_cam([123])(\\.(MOV|DNG|JPG))$"));
    const auto nameOf = [](const QString &path) {
        const QRegularExpressionMatch match = recording.match(path);
        // The import puts the camera before every such extension of the path, of folders too.
        return std::make_pair(match.captured(1).toInt(),
                              QString(path).replace(match.captured(0), match.captured(2)));
    };
    RecordingList list;
    append(folder, nameOf, stop, &list);
    return list;
}

TakesReport matchTakes(const QVector<Recording> &recordings)
{
    return Matcher(recordings).run();
}

QString toText(const TakeFinding &finding)
{
    QStringList files;
    for (int camera = 1; camera <= cameraCount; ++camera) {
        const QString &file = finding.files.at(static_cast<std::size_t>(camera - 1));
        if (!file.isEmpty())
            files.append(QStringLiteral("camera %1: ").arg(camera) + file);
    }
    const QString all = files.join(QStringLiteral(", "));
    const QString own =
        finding.camera == 0 ? QString() : finding.files.at(static_cast<std::size_t>(finding.camera - 1));
    const QString when = finding.start ? QStringLiteral("the take of ") +
                                             QDateTime::fromMSecsSinceEpoch(*finding.start, Qt::UTC)
                                                 .toString(QStringLiteral("yyyy-MM-dd hh:mm:ss"))
                                       : QStringLiteral("a take");
    switch (finding.kind) {
    case TakeFinding::Kind::Missing:
        if (files.isEmpty())
            return QStringLiteral("Missing: camera %1 has no recordings.").arg(finding.camera);
        return QStringLiteral("Missing: camera %1 has no recording of ").arg(finding.camera) + when +
               QStringLiteral(" (") + all + QStringLiteral(").");
    case TakeFinding::Kind::Unpaired:
        return QStringLiteral("Unpaired: only camera %1 recorded ").arg(finding.camera) + when +
               QStringLiteral(" (") + own + QStringLiteral(").");
    case TakeFinding::Kind::Shifted:
        return QStringLiteral("Shifted: ") + when + QStringLiteral(" has different names (") + all +
               QStringLiteral(").");
    case TakeFinding::Kind::Short:
        return QStringLiteral("Short: camera %1 stopped %2 s early in ")
                   .arg(finding.camera)
                   .arg(finding.seconds, 0, 'f', 1) +
               when + QStringLiteral(" (") + own + QStringLiteral(").");
    case TakeFinding::Kind::Untimed:
        return QStringLiteral("Not checked: when camera %1 recorded ").arg(finding.camera) + own +
               QStringLiteral(" is unknown (") + finding.reason + QStringLiteral(").");
    case TakeFinding::Kind::Unmeasured:
        return QStringLiteral("Not checked: how long camera %1 recorded ").arg(finding.camera) + own +
               QStringLiteral(" is unknown (its movie header has no length).");
    case TakeFinding::Kind::Uncertain:
        return QStringLiteral("Not checked: which takes camera %1 recorded is uncertain (")
                   .arg(finding.camera) +
               finding.reason + QStringLiteral(").");
    }
    return {};
}

QStringList clockLines(const TakesReport &report)
{
    QStringList lines;
    for (int camera = 1; camera <= cameraCount; ++camera) {
        const std::optional<double> offset = report.clocks.at(static_cast<std::size_t>(camera - 1));
        if (!offset || std::abs(*offset) * 1000 <= negligible)
            continue;
        lines.append(QStringLiteral("Clock: camera %1 is %2 s %3 camera %4.")
                         .arg(camera)
                         .arg(std::abs(*offset), 0, 'f', 0)
                         .arg(*offset > 0 ? QStringLiteral("ahead of") : QStringLiteral("behind"))
                         .arg(report.reference));
    }
    return lines;
}
