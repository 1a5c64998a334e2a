import QtQuick 2.15

/// The volumes that may be cards, and which of them the operator chose.
QtObject {
    id: root

    /// Objects with "key", a path, and "value", a name.
    property var drives: []
    /// What the drop-downs offer, with the roles "key" and "text".
    readonly property ListModel driveModel: ListModel {}

    /// Positions in `drives`; -1 where nothing is chosen.
    property int card1Index: -1
    property int card2Index: -1
    property int card3Index: -1

    function chooseCards(indexes) {
        root.card1Index = indexes[0]
        root.card2Index = indexes[1]
        root.card3Index = indexes[2]
    }

    /// Offers `drives`, and chooses for each card what is named like it; `otherwise` is the position of what is chosen
    /// where nothing is.
    function showDrives(drives, otherwise = -1) {
        root.chooseCards([-1, -1, -1])
        root.driveModel.clear()
        root.drives = drives
        const chosen = [otherwise, otherwise, otherwise]
        root.drives.forEach((drive, index) => {
            root.driveModel.append({ "key": drive.key, "text": drive.key ? drive.value + " (" + drive.key + ")" : drive.value })
            if (!drive.key.includes("360") && !drive.value.includes("360"))
                return
            const card = ["1", "2", "3"].findIndex(digit => drive.key.endsWith(digit) || drive.value.endsWith(digit))
            if (card >= 0)
                chosen[card] = index
        })
        root.chooseCards(chosen)
    }

    /// Puts a folder chosen by hand at the top of every card's list; the card that asked for it selects it, the
    /// others keep their choice.
    function addSource(cardNumber, path) {
        const chosen = [root.card1Index, root.card2Index, root.card3Index]
            .map((index, card) => card + 1 === cardNumber ? 0 : index + 1)
        root.drives = [{ "key": path, "value": path }].concat(root.drives)
        root.driveModel.insert(0, { "key": path, "text": path + " (" + path + ")" })
        root.chooseCards(chosen)
    }

    /// The key of an entry of a list such as `drives`; "" where nothing is chosen.
    function keyAt(entries, index) {
        return index >= 0 && index < entries.length ? entries[index].key : ""
    }

    function chosenDrives() {
        return [root.card1Index, root.card2Index, root.card3Index].map(index => root.keyAt(root.drives, index))
    }
}
