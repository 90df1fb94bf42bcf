#include "linux/QtDesktopSearchShell.h"

#include <QDBusMetaType>
#include <utility>

#include "frame/ThreadAffinity.h"
#include "linux/DesktopSearchItems.h"
#include "linux/QtDesktopSearchText.h"

namespace sonra {
namespace {

/// The shell shows a handful and the number of the others.
constexpr std::size_t mostResults = 20;

std::vector<std::string> toTerms(const QStringList& terms) {
    std::vector<std::string> result;
    result.reserve(static_cast<std::size_t>(terms.size()));
    for (const auto& term : terms) result.push_back(term.toStdString());
    return result;
}

QVariantMap meta(const QString& identifier, const std::optional<SearchableItem>& item) {
    QVariantMap result{{"id", identifier}, {"name", identifier}};
    if (!item) return result;
    result["name"] = desktopSearch::oneLine(item->title);
    result["description"] = desktopSearch::oneLine(item->contentDescription);
    result["gicon"] = desktopSearch::iconName;
    return result;
}

}  // namespace

QtDesktopSearchShell::QtDesktopSearchShell(QObject& exported, const DesktopSearchItems& items,
                                           OnText openUrl, OnText search)
    : QDBusAbstractAdaptor(&exported),
      items_(items),
      openUrl_(std::move(openUrl)),
      search_(std::move(search)) {
    qDBusRegisterMetaType<QList<QVariantMap>>();
}

QStringList QtDesktopSearchShell::GetInitialResultSet(const QStringList& terms) {
    SONRA_ASSERT_MAIN_THREAD();
    QStringList identifiers;
    for (const auto& match : items_.search(toTerms(terms), mostResults))
        identifiers << QString::fromStdString(match.item.uniqueIdentifier);
    return identifiers;
}

QStringList QtDesktopSearchShell::GetSubsearchResultSet(const QStringList& /*previousResults*/,
                                                        const QStringList& terms) {
    // The results before were the best for other terms, and not all that there were.
    return GetInitialResultSet(terms);
}

QList<QVariantMap> QtDesktopSearchShell::GetResultMetas(const QStringList& identifiers) {
    // One for each, in their order: the shell counts on it.
    QList<QVariantMap> metas;
    for (const auto& identifier : identifiers)
        metas << meta(identifier, items_.item(identifier.toStdString()));
    return metas;
}

void QtDesktopSearchShell::ActivateResult(const QString& identifier, const QStringList& /*terms*/,
                                          uint /*timestamp*/) {
    openUrl_(identifier.toStdString());
}

void QtDesktopSearchShell::LaunchSearch(const QStringList& terms, uint /*timestamp*/) {
    search_(terms.join(' ').toStdString());
}

}  // namespace sonra
