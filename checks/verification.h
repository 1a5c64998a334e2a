#pragma once

#include "checks/filetree.h"
#include "platform/diskread.h"

#include <QByteArray>
#include <QMap>
#include <QString>

#include <atomic>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// What is to be verified. The place of a card is its number less one; an empty path is a card that isn't
/// there.
struct VerifyRequest
{
    std::vector<std::filesystem::path> cards;
    std::filesystem::path destination;
    /// What the preparation of a card writes: relative path, each content that it may have. Such files hold
    /// nothing to lose.
    QMap<QString, QList<QByteArray>> preparationFiles = {};
};

/// A file of a card and the copy that equals it. Both were read from their disks.
struct VerifiedFile
{
    std::string path; ///< below the card
    std::string copy; ///< below the destination
    qint64 size = 0;
    QByteArray hash;   ///< XXH128
    FileLook copyLook; ///< when the copy had been read
};

/// What the verification of one card found.
struct CardVerdict
{
    enum class State {
        Safe,       ///< every file has a copy
        Finding,    ///< one has none, or can't be read
        NotChecked, ///< nothing speaks against the copies, but they are not proven
        Empty,      ///< there is nothing to lose
    };

    int card = 0; ///< 1 to 3
    std::filesystem::path root;
    State state = State::NotChecked;
    int files = 0;                        ///< to be verified
    std::vector<VerifiedFile> verified;   ///< of these, those that have a copy
    std::vector<TreeProblem> findings;    ///< why the card may not be erased
    std::vector<TreeProblem> notChecked;  ///< what could not be told
    std::vector<std::string> preparation; ///< files of the preparation
    std::vector<std::string> others;      ///< links and the like, which hold no content

    /// The verdict in a line; `destination` as the operator wrote it.
    [[nodiscard]] QString text(const QString &destination) const;
};

/// Verifies that every file of some cards is stored below a destination, bit for bit, whatever its name. Both
/// sides are read from their disks, all at the same time.
class Verification
{
    Q_DISABLE_COPY(Verification)

public:
    /// `stop` is tested at least every mebibyte and must outlive this.
    Verification(VerifyRequest request, const StopFlag &stop);
    ~Verification();

    /// Why a request makes no sense, also before the destination is there; empty if it does.
    [[nodiscard]] static QString refusalOf(const VerifyRequest &request);
    /// The same for this one, whose destination must be there.
    [[nodiscard]] QString refusal() const;
    /// Verifies; a verdict per card that is there. Empty if it was stopped. Blocks.
    [[nodiscard]] std::vector<CardVerdict> run();

    /// Whether the destination is still the folder that it was at first.
    [[nodiscard]] bool isDestinationThere() const;
    /// Folders and files below the destination that could not be listed: copies may be there.
    [[nodiscard]] const std::vector<TreeProblem> &unreadableCopies() const;

    /// Bytes read so far, and to be read in all; 0 until that is known. May be asked from another thread.
    [[nodiscard]] qint64 bytesRead() const;
    [[nodiscard]] qint64 bytesTotal() const;
    /// The same for one card, 1 to 3, and its copies. A copy of several cards counts for one of them.
    [[nodiscard]] qint64 bytesRead(int card) const { return bytes_.at(placeOf(card)).read; }
    [[nodiscard]] qint64 bytesTotal(int card) const { return bytes_.at(placeOf(card)).total; }

private:
    struct Content;
    struct Copies;
    struct Card;
    struct Bytes
    {
        std::atomic<qint64> read{0};
        std::atomic<qint64> total{0};
    };

    static std::size_t placeOf(int card) { return static_cast<std::size_t>(card) - 1; }
    void listCard(Card *card);
    void listCopies(const std::vector<Card> &cards);
    [[nodiscard]] bool isOfPreparation(const Card &card, const TreeFile &file) const;
    void guessCopies(Card *card) const;
    void countBytes(Card *card);
    [[nodiscard]] Content hash(const std::filesystem::path &path, Bytes *bytes);
    [[nodiscard]] const Content &copyContent(std::size_t index, const Card &card);
    void readCard(Card *card);
    void readGuesses(const Card &card);
    void judge(Card *card);
    void judgeFile(Card *card, std::size_t index);
    void readAllOfSize(qint64 size, const Card &card);
    [[nodiscard]] QString copyName(std::size_t index) const;
    [[nodiscard]] QString reasonWithoutCopy(const Card &card, std::size_t index);
    void finish(Card *card) const;

    VerifyRequest request_;
    const StopFlag &stop_;
    DiskReader reader_;
    std::unique_ptr<Copies> copies_;
    std::set<FileId> cardFiles_; ///< by whichever name
    std::vector<Bytes> bytes_;   ///< by the place of the card
};
