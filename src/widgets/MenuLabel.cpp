#include "widgets/MenuLabel.h"

namespace sonra {
namespace {

QString oneLine(const std::string& text) {
    auto line = QString::fromStdString(text);
    for (auto& character : line)
        if (character.category() == QChar::Other_Control ||
            character.category() == QChar::Separator_Line ||
            character.category() == QChar::Separator_Paragraph)
            character = u' ';
    return line;
}

QString words(const std::vector<MenuText>& title, MenuDrawnBy drawer) {
    QString joined;
    for (const auto& piece : title) {
        // Here the row's icon shows it; not every panel shows icons.
        if (piece.role == MenuText::Role::activeDot && drawer == MenuDrawnBy::qt) continue;
        joined += oneLine(piece.text);
        const bool isLast = &piece == &title.back();
        if (piece.role == MenuText::Role::chip && !isLast) joined += u"  ";
    }
    return joined;
}

/// Qt replaces the first ampersand by an underscore, unless it ends the label: doubled, the pair
/// becomes a marked ampersand.
void escapeForPanel(QString& label) {
    label.replace(u'_', QStringLiteral("__"));
    const auto first = label.indexOf(u'&');
    if (first >= 0 && first != label.size() - 1) label.insert(first, u'&');
}

}  // namespace

QString menuLabel(const MenuRow& row, MenuDrawnBy drawer) {
    auto label = words(row.title, drawer);
    const auto& trailing = row.trailing.empty() ? row.imageDescription : row.trailing;
    if (!trailing.empty()) label += u'\t' + oneLine(trailing);
    if (drawer == MenuDrawnBy::panel)
        escapeForPanel(label);
    else
        label.replace(u'&', QStringLiteral("&&"));
    return label;
}

}  // namespace sonra
