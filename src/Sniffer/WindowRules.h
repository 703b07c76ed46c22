#pragma once

#include <QList>
#include <QString>
#include <QStringList>

// Small rules of the main window, kept apart from the widgets so they can
// be checked on their own.
namespace WindowRules {

// The Options page is fitted to its rows: the list's height is added while
// it shows, and 75 (title shown) or 165 (title hidden) taken off.
int optionsAdjustment(bool listShown, int listHeight, bool titleShown);

// The window height of a layer: the sum of its visible pages' heights, with
// the Options page fitted as above when it is one of them.
struct OptionsRows
{
    bool listShown;
    int listHeight;
    bool titleShown;
};
int layerHeight(const QList<int> &visiblePageHeights, bool optionsVisible, const OptionsRows &rows);

// How many rows of a format list of `count` rows the Options page shows
// (27 px each, the rest scrolls), so that the window stays within a screen
// `availableHeight` high, frame included; at least one row.
int formatRowsShown(int count, int availableHeight);

// The progress bar creeps up one step per tick; the tick that would reach
// maximum - 2 throws it back to a point between minimum + 20 and maximum - 2
// (20 to 98 for the bar's 0 to 100), so it never stops moving.
int progressNext(int value, int minimum, int maximum, quint32 random);

// One tick of the "converting ..." dots: they grow to 11 and shrink to 1.
void dotsNext(int &count, bool &growing);

// Which table a message selector reads, and whether it is an error box.
QString messageTable(int selector);
bool isErrorSelector(int selector);

// The text of a message box: the message text (the program's own, which may
// hold markup and links), then for errors the technical block (number, place,
// comments) in small italic print, its details escaped to plain text.
QString errorDetailsBlock(int number, int selector, const QStringList &details);
QString messageBody(const QString &text, const QString &detailsBlock);

// Title number and text of a message row "title~text".
struct MessageRow
{
    int titleNumber;
    QString text;
};
MessageRow splitMessageRow(const QString &row);

} // namespace WindowRules
