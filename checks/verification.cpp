#include "checks/verification.h"

#include "checks/contenthash.h"
#include "checks/filename.h"

#include <QFile>

#include <algorithm>
#include <deque>
#include <mutex>
#include <numeric>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t none = static_cast<std::size_t>(-1);

/// What the import gives a name to only when it is whole; it is removed one day.
bool isTemporary(const std::string &name)
{
    return name.rfind(".kelpora360-", 0) == 0;
}

/// Folders of what was deleted, in any spelling of their letters: some file systems don't tell them apart.
bool isTrash(const std::string &name)
{
    const QString folder = QString::fromStdString(name).toLower();
    return folder.startsWith(QStringLiteral(".trash")) || folder == QStringLiteral("trash") ||
           folder == QStringLiteral("$recycle.bin") || folder == QStringLiteral("recycler");
}

/// Whether `path` is a folder of what was deleted, or lies in one.
bool isInTrash(const fs::path &path)
{
    std::error_code error;
    const fs::path whole = fs::weakly_canonical(path, error);
    return std::any_of(whole.begin(), whole.end(),
                       [](const fs::path &name) { return isTrash(name.u8string()); });
}

std::string nameOf(const std::string &path)
{
    return path.substr(path.rfind('/') + 1);
}

bool startsWith(const std::string &text, const std::string &start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool endsWith(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The place of the extension's dot, or of the end.
std::size_t extensionOf(const std::string &path)
{
    const std::size_t dot = path.rfind('.');
    return dot == std::string::npos || path.find('/', dot) != std::string::npos ? path.size() : dot;
}

std::vector<TreeFile> sorted(std::vector<TreeFile> files)
{
    std::sort(files.begin(), files.end(),
              [](const TreeFile &a, const TreeFile &b) { return a.path < b.path; });
    return files;
}

fs::path below(const fs::path &root, const std::string &relative)
{
    return root / fs::u8path(relative);
}

bool isFolder(const fs::path &path, const std::optional<FileId> &id)
{
    const auto now = fileIdOf(path);
    return now && id && *now == *id;
}

/// Whether `path` is the folder `root` or lies in it, by whatever names.
bool isInside(const fs::path &path, const FileId &root)
{
    std::error_code error;
    for (fs::path folder = fs::weakly_canonical(path, error); !error; folder = folder.parent_path()) {
        const auto id = fileIdOf(folder);
        if (id && *id == root)
            return true;
        if (folder == folder.parent_path())
            break;
    }
    return false;
}

/// The card that `path` belongs to if it is, or lies in, a card's folder of recordings; else `path`. Erasing
/// empties the whole card.
fs::path wholeCard(const fs::path &path)
{
    std::error_code error;
    fs::path card = path;
    fs::path folder = fs::canonical(path, error);
    for (; !error && folder != folder.parent_path(); folder = folder.parent_path()) {
        if (folder.filename() == "DCIM")
            card = folder.parent_path();
    }
    return card;
}

} // namespace

/// What reading a file gave.
struct Verification::Content
{
    DiskRead read = {};
    QByteArray hash = {};
    bool begun = false; ///< some of it was read

    [[nodiscard]] bool isRead() const
    {
        return read.end == DiskRead::End::FromDisk || read.end == DiskRead::End::Unproven;
    }
    /// Why an equal content proves nothing; empty if it does.
    [[nodiscard]] QString doubt() const
    {
        switch (read.end) {
        case DiskRead::End::FromDisk:
            return {};
        case DiskRead::End::Changed:
            return QStringLiteral("changed while it was read");
        default:
            return QStringLiteral("not read from the disk: ") + read.reason;
        }
    }
};

/// The files of the destination that may be copies.
struct Verification::Copies
{
    struct Copy
    {
        TreeFile file;
        Bytes *bytes = nullptr; ///< among which it was counted as the guess of a card
        std::once_flag once = {};
        Content content = {};
    };

    fs::path root;
    std::optional<FileId> id;
    std::deque<Copy> files; ///< by path
    std::unordered_map<qint64, std::vector<std::size_t>> bySize;
    std::vector<TreeProblem> unreadable;

    std::mutex mutex; ///< guards what follows
    std::unordered_map<std::string, std::vector<std::size_t>> byHash;
    std::set<qint64> whole; ///< sizes of which every file has been read
};

struct Verification::Card
{
    CardVerdict verdict;
    std::optional<FileId> id;
    Bytes *bytes = nullptr;
    std::vector<TreeFile> listed;     ///< everything
    std::vector<TreeFile> files;      ///< to be verified
    std::vector<std::size_t> guesses; ///< the copy that each has by its name, or none
    std::vector<std::size_t> misfits; ///< the same, of another size
    std::vector<Content> contents;
    bool gone = false;
};

QString CardVerdict::text(const QString &destination) const
{
    const QString start = QStringLiteral("Card %1: ").arg(card);
    const auto stored = static_cast<int>(verified.size());
    switch (state) {
    case State::Safe:
        return start + QStringLiteral("%1 of %2 files are in %3, both read from disk. Safe to erase.")
                           .arg(QString::number(stored), QString::number(files), destination);
    case State::Finding:
        return start + QStringLiteral("do NOT erase: %1 of %2 files are in %3, both read from disk.")
                           .arg(QString::number(stored), QString::number(files), destination);
    case State::NotChecked:
        return start +
               QStringLiteral("not checked, do NOT erase: %1 of %2 files are in %3, both read from disk.")
                   .arg(QString::number(stored), QString::number(files), destination);
    case State::Empty:
        break;
    }
    return start + QStringLiteral("there is nothing on it.");
}

Verification::Verification(VerifyRequest request, const StopFlag &stop)
    : request_(std::move(request))
    , stop_(stop)
    , copies_(std::make_unique<Copies>())
    , bytes_(request_.cards.size())
{
    copies_->root = request_.destination;
    copies_->id = fileIdOf(copies_->root);
}

Verification::~Verification() = default;

QString Verification::refusal() const
{
    std::error_code error;
    if (!fs::is_directory(request_.destination, error))
        return QStringLiteral("%1 is no folder.").arg(shown(request_.destination));
    return refusalOf(request_);
}

QString Verification::refusalOf(const VerifyRequest &request)
{
    std::error_code error;
    std::vector<fs::path> others;
    if (isInTrash(request.destination))
        return QStringLiteral("%1 lies in the trash.").arg(shown(request.destination));
    if (fs::exists(request.destination, error)) {
        if (!fs::is_directory(request.destination, error))
            return QStringLiteral("%1 is no folder.").arg(shown(request.destination));
        others.push_back(request.destination);
    }
    bool any = false;
    for (const fs::path &card : request.cards) {
        if (card.empty())
            continue;
        any = true;
        const auto id = fileIdOf(card);
        if (!id || !fs::is_directory(card, error))
            return QStringLiteral("%1 is no folder.").arg(shown(card));
        if (fs::equivalent(card, card.root_path(), error))
            return QStringLiteral("%1 is the system's root, not a card.").arg(shown(card));
        const auto whole = fileIdOf(wholeCard(card));
        if (whole && isInside(request.destination, *whole) && !isInside(request.destination, *id))
            return QStringLiteral("%1 lies on the card that %2 belongs to.")
                .arg(shown(request.destination), shown(card));
        if (whole && !(*whole == *id))
            return QStringLiteral("%1 is only a part of the card %2, which erasing empties: name that.")
                .arg(shown(card), shown(wholeCard(card)));
        const QString overlap = QStringLiteral("%1 and %2 are the same folder, or one lies in the other.");
        for (const fs::path &other : others) {
            const auto otherId = fileIdOf(other);
            if (!otherId || isInside(card, *otherId) || isInside(other, *id))
                return overlap.arg(shown(card), shown(other));
        }
        // A destination that is still to be created.
        if (isInside(request.destination, *id))
            return overlap.arg(shown(card), shown(request.destination));
        others.push_back(card);
    }
    return any ? QString() : QStringLiteral("no card is named.");
}

std::vector<CardVerdict> Verification::run()
{
    std::vector<Card> cards;
    for (std::size_t i = 0; i < request_.cards.size(); ++i) {
        if (request_.cards.at(i).empty())
            continue;
        Card card;
        card.verdict.card = static_cast<int>(i) + 1;
        card.verdict.root = request_.cards.at(i);
        listCard(&card);
        cards.push_back(std::move(card));
    }
    listCopies(cards);
    for (Card &card : cards)
        guessCopies(&card);
    for (Card &card : cards)
        countBytes(&card);

    std::vector<std::thread> threads;
    threads.reserve(cards.size());
    for (Card &card : cards) {
        threads.emplace_back([this, &card] {
            std::thread guesses([this, &card] { readGuesses(card); });
            readCard(&card);
            guesses.join();
            judge(&card);
        });
    }
    for (std::thread &thread : threads)
        thread.join();

    std::vector<CardVerdict> verdicts;
    for (Card &card : cards) {
        finish(&card);
        verdicts.push_back(std::move(card.verdict));
    }
    return stop_.isRaised() ? std::vector<CardVerdict>() : verdicts;
}

void Verification::listCard(Card *card)
{
    card->id = fileIdOf(card->verdict.root);
    card->bytes = &bytes_.at(placeOf(card->verdict.card));
    FileTree tree = listTree(card->verdict.root, stop_);
    card->verdict.findings = tree.unreadable;
    card->verdict.others = std::move(tree.others);
    for (const TreeFile &file : tree.files) {
        if (isOfPreparation(*card, file))
            card->verdict.preparation.push_back(file.path);
        else
            card->files.push_back(file);
    }
    card->verdict.files = static_cast<int>(card->files.size());
    card->listed = sorted(std::move(tree.files));
    card->contents.resize(card->files.size());
    for (const TreeFile &file : card->files) {
        if (const auto id = fileIdOf(below(card->verdict.root, file.path)))
            cardFiles_.insert(*id);
    }
}

bool Verification::isOfPreparation(const Card &card, const TreeFile &file) const
{
    const auto known = request_.preparationFiles.constFind(QString::fromStdString(file.path));
    if (known == request_.preparationFiles.cend())
        return false;
    return std::any_of(known->cbegin(), known->cend(), [&](const QByteArray &text) {
        if (file.size != text.size())
            return false;
        QFile content(QString::fromStdString(below(card.verdict.root, file.path).u8string()));
        return content.open(QIODevice::ReadOnly) && content.readAll() == text;
    });
}

void Verification::listCopies(const std::vector<Card> &cards)
{
    std::unordered_set<qint64> sizes;
    for (const Card &card : cards) {
        for (const TreeFile &file : card.files)
            sizes.insert(file.size);
    }
    // What is named like a copy of ours is told of if its size is another.
    const auto wanted = [&](const TreeFile &file) {
        const std::string name = nameOf(file.path);
        return !isTemporary(name) && (sizes.count(file.size) != 0 || name.find("_cam") != std::string::npos);
    };
    // A card may be mounted a second time, below the destination.
    const auto skipped = [&](const fs::path &folder) {
        const auto id = fileIdOf(folder);
        return isTrash(folder.filename().u8string()) ||
               std::any_of(cards.cbegin(), cards.cend(),
                           [&](const Card &card) { return id && id == card.id; });
    };
    FileTree tree = listTree(copies_->root, stop_, wanted, skipped);
    copies_->unreadable = std::move(tree.unreadable);
    for (TreeFile &file : sorted(std::move(tree.files))) {
        copies_->bySize[file.size].push_back(copies_->files.size());
        copies_->files.emplace_back();
        copies_->files.back().file = std::move(file);
    }
}

/// Finds for each file the copy that the import or a plain copy would have made. Its name is that of the
/// file, with whatever was put before the extension: "_cam2", "_reef_cam2", "-1_cam2".
void Verification::guessCopies(Card *card) const
{
    const std::string camera = "_cam" + std::to_string(card->verdict.card);
    for (const TreeFile &file : card->files) {
        if (stop_.isRaised())
            return;
        const std::size_t dot = extensionOf(file.path);
        const std::string stem = file.path.substr(0, dot);
        const std::string ending = camera + file.path.substr(dot);
        auto copy = std::lower_bound(
            copies_->files.cbegin(), copies_->files.cend(), stem,
            [](const Copies::Copy &one, const std::string &path) { return one.file.path < path; });
        std::size_t guess = none;
        std::size_t misfit = none;
        for (; copy != copies_->files.cend() && startsWith(copy->file.path, stem); ++copy) {
            if (copy->file.path != file.path && !endsWith(copy->file.path, ending))
                continue;
            const auto index = static_cast<std::size_t>(copy - copies_->files.cbegin());
            if (copy->file.size != file.size) {
                misfit = index;
                continue;
            }
            guess = index;
            break;
        }
        // Renamed, maybe: the only one of its size.
        const auto same = copies_->bySize.find(file.size);
        if (guess == none && same != copies_->bySize.cend() && same->second.size() == 1)
            guess = same->second.front();
        card->guesses.push_back(guess);
        card->misfits.push_back(misfit);
    }
}

/// Tells how much is to be read for a card, as far as that is known before.
void Verification::countBytes(Card *card)
{
    qint64 total = 0;
    for (const TreeFile &file : card->files)
        total += file.size;
    for (const std::size_t guess : card->guesses) {
        if (guess == none || copies_->files.at(guess).bytes != nullptr)
            continue;
        copies_->files.at(guess).bytes = card->bytes;
        total += copies_->files.at(guess).file.size;
    }
    card->bytes->total = total;
}

Verification::Content Verification::hash(const fs::path &path, Bytes *bytes)
{
    ContentHash hash;
    Content content;
    content.read = reader_.read(path, stop_, [&](const char *data, std::size_t size) {
        hash.add(data, size);
        content.begun = true;
        bytes->read += static_cast<qint64>(size);
    });
    content.hash = hash.result();
    return content;
}

/// The content of a copy, which is read at the first call, for `card`.
const Verification::Content &Verification::copyContent(std::size_t index, const Card &card)
{
    Copies::Copy &copy = copies_->files.at(index);
    std::call_once(copy.once, [&] {
        Bytes *bytes = copy.bytes;
        if (bytes == nullptr) {
            bytes = card.bytes;
            bytes->total += copy.file.size;
        }
        copy.content = hash(below(copies_->root, copy.file.path), bytes);
        const std::lock_guard<std::mutex> lock(copies_->mutex);
        if (copy.content.isRead())
            copies_->byHash[copy.content.hash.toStdString()].push_back(index);
    });
    return copy.content;
}

void Verification::readCard(Card *card)
{
    fs::path readable;
    for (std::size_t i = 0; i < card->files.size() && !stop_.isRaised() && !card->gone; ++i) {
        const fs::path path = below(card->verdict.root, card->files.at(i).path);
        card->contents.at(i) = hash(path, card->bytes);
        const Content &content = card->contents.at(i);
        if (content.begun)
            readable = path;
        // A card that was pulled need not be asked for every file.
        if (content.read.end == DiskRead::End::Failed)
            card->gone = !isFolder(card->verdict.root, card->id) ||
                         (!readable.empty() && !DiskReader::isStartReadable(readable));
    }
}

void Verification::readGuesses(const Card &card)
{
    for (std::size_t i = 0; i < card.guesses.size() && !stop_.isRaised(); ++i) {
        if (card.guesses.at(i) != none)
            static_cast<void>(copyContent(card.guesses.at(i), card));
    }
}

void Verification::judge(Card *card)
{
    for (std::size_t i = 0; i < card->files.size() && !stop_.isRaised() && !card->gone; ++i)
        judgeFile(card, i);
}

void Verification::judgeFile(Card *card, std::size_t index)
{
    const TreeFile &file = card->files.at(index);
    const Content &content = card->contents.at(index);
    CardVerdict &verdict = card->verdict;
    if (content.read.end == DiskRead::End::Failed) {
        verdict.findings.push_back({file.path, QStringLiteral("can't be read: ") + content.read.reason});
        return;
    }
    if (content.read.end == DiskRead::End::Changed) {
        verdict.notChecked.push_back({file.path, content.doubt()});
        return;
    }
    QString doubt;
    /// Whether the copy was one.
    const auto accept = [&](std::size_t copyIndex) {
        const Content &copy = copyContent(copyIndex, *card);
        // Another name of a card's file is no copy of any.
        if (!copy.isRead() || copy.hash != content.hash || cardFiles_.count(copy.read.id) != 0 ||
            copies_->files.at(copyIndex).file.size != file.size)
            return false;
        doubt = content.doubt();
        if (doubt.isEmpty() && !copy.doubt().isEmpty())
            doubt = QStringLiteral("its copy %1 was %2").arg(copyName(copyIndex), copy.doubt());
        if (doubt.isEmpty())
            verdict.verified.push_back(
                {file.path, copies_->files.at(copyIndex).file.path, file.size, content.hash, copy.read.look});
        return doubt.isEmpty();
    };
    const auto acceptAny = [&] {
        std::vector<std::size_t> equal;
        {
            const std::lock_guard<std::mutex> lock(copies_->mutex);
            const auto found = copies_->byHash.find(content.hash.toStdString());
            if (found != copies_->byHash.cend())
                equal = found->second;
        }
        return std::any_of(equal.cbegin(), equal.cend(), accept);
    };
    const std::size_t guess = card->guesses.at(index);
    if ((guess != none && accept(guess)) || acceptAny())
        return;
    readAllOfSize(file.size, *card);
    if (stop_.isRaised() || acceptAny())
        return;
    if (guess != none && copyContent(guess, *card).read.end == DiskRead::End::Changed)
        doubt = QStringLiteral("its copy %1 %2").arg(copyName(guess), copyContent(guess, *card).doubt());
    if (!doubt.isEmpty())
        verdict.notChecked.push_back({file.path, doubt});
    else
        verdict.findings.push_back({file.path, reasonWithoutCopy(*card, index)});
}

/// Reads every copy of a size: one that was renamed may be the one.
void Verification::readAllOfSize(qint64 size, const Card &card)
{
    {
        const std::lock_guard<std::mutex> lock(copies_->mutex);
        if (copies_->whole.count(size) != 0)
            return;
    }
    const auto same = copies_->bySize.find(size);
    if (same == copies_->bySize.cend())
        return;
    for (std::size_t i = 0; i < same->second.size() && !stop_.isRaised(); ++i)
        static_cast<void>(copyContent(same->second.at(i), card));
    const std::lock_guard<std::mutex> lock(copies_->mutex);
    copies_->whole.insert(size);
}

QString Verification::copyName(std::size_t index) const
{
    return shown(fs::u8path(copies_->files.at(index).file.path));
}

QString Verification::reasonWithoutCopy(const Card &card, std::size_t index)
{
    const TreeFile &file = card.files.at(index);
    const std::size_t guess = card.guesses.at(index);
    const std::size_t misfit = card.misfits.at(index);
    const std::string stem = file.path.substr(0, extensionOf(file.path));
    if (guess != none && startsWith(copies_->files.at(guess).file.path, stem)) {
        const Content &copy = copyContent(guess, card);
        if (copy.read.end == DiskRead::End::Failed)
            return QStringLiteral("its copy %1 can't be read: %2").arg(copyName(guess), copy.read.reason);
        if (cardFiles_.count(copy.read.id) != 0)
            return QStringLiteral("its copy %1 is a file of a card by another name").arg(copyName(guess));
        return QStringLiteral("its copy %1 differs from it").arg(copyName(guess));
    }
    if (misfit != none)
        return QStringLiteral("its copy %1 has %2 bytes instead of %3")
            .arg(copyName(misfit), QString::number(copies_->files.at(misfit).file.size),
                 QString::number(file.size));
    return QStringLiteral("no copy of it is there");
}

/// Looks whether card, copies and destination are still those that were read, and sums up.
void Verification::finish(Card *card) const
{
    CardVerdict &verdict = card->verdict;
    const FileTree now = listTree(verdict.root, stop_);
    const bool rootFailed = std::any_of(now.unreadable.cbegin(), now.unreadable.cend(),
                                        [](const TreeProblem &problem) { return problem.path.empty(); });
    // While other files were read, a copy may have become another one.
    std::vector<VerifiedFile> still;
    for (VerifiedFile &file : verdict.verified) {
        const auto look = lookOf(below(copies_->root, file.copy));
        if (look && look->isStill(file.copyLook))
            still.push_back(std::move(file));
        else
            verdict.notChecked.push_back(
                {file.path, QStringLiteral("its copy %1 was changed after it was read")
                                .arg(shown(fs::u8path(file.copy)))});
    }
    verdict.verified = std::move(still);
    QString gone;
    if (card->gone || !isFolder(verdict.root, card->id) || rootFailed)
        gone = QStringLiteral("the card was pulled, or another one put in, while it was read");
    else if (!isDestinationThere())
        gone = QStringLiteral("the destination was removed while it was read");
    else if (sorted(now.files) != card->listed)
        verdict.notChecked.push_back({{}, QStringLiteral("the card was changed while it was read")});
    if (!gone.isEmpty()) {
        // What could not be read from there says nothing of the copies.
        verdict.findings.clear();
        verdict.verified.clear();
        verdict.notChecked = {{{}, gone}};
    }
    for (std::vector<TreeProblem> *problems : {&verdict.findings, &verdict.notChecked})
        std::sort(problems->begin(), problems->end(),
                  [](const TreeProblem &a, const TreeProblem &b) { return a.path < b.path; });
    if (!verdict.findings.empty())
        verdict.state = CardVerdict::State::Finding;
    else if (!verdict.notChecked.empty() || verdict.verified.size() != card->files.size())
        verdict.state = CardVerdict::State::NotChecked;
    else
        verdict.state = card->files.empty() ? CardVerdict::State::Empty : CardVerdict::State::Safe;
}

qint64 Verification::bytesRead() const
{
    return std::accumulate(bytes_.cbegin(), bytes_.cend(), qint64{0},
                           [](qint64 sum, const Bytes &bytes) { return sum + bytes.read; });
}

qint64 Verification::bytesTotal() const
{
    return std::accumulate(bytes_.cbegin(), bytes_.cend(), qint64{0},
                           [](qint64 sum, const Bytes &bytes) { return sum + bytes.total; });
}

bool Verification::isDestinationThere() const
{
    return isFolder(copies_->root, copies_->id);
}

const std::vector<TreeProblem> &Verification::unreadableCopies() const
{
    return copies_->unreadable;
}
