#include "linux/QtDesktopSearchRunner.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <utility>

#include "frame/ThreadAffinity.h"
#include "linux/DesktopSearchItems.h"
#include "linux/QtDesktopSearchText.h"

namespace sonra {
namespace {

/// They share one list with those of all other runners.
constexpr std::size_t mostMatches = 8;
/// KRunner's number for a match that is one of many. Those that it calls exact come before programs
/// of that name.
constexpr int possibleMatch = 30;
constexpr int fewestLetters = 2;

QtRunnerMatch toMatch(const DesktopSearchItems::Match& match) {
    QtRunnerMatch result;
    result.id = QString::fromStdString(match.item.uniqueIdentifier);
    result.text = desktopSearch::oneLine(match.item.title);
    result.icon = desktopSearch::iconName;
    result.type = possibleMatch;
    result.relevance = match.relevance;
    result.properties["subtext"] = desktopSearch::oneLine(match.item.contentDescription);
    return result;
}

}  // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const QtRunnerMatch& match) {
    argument.beginStructure();
    argument << match.id << match.text << match.icon << match.type << match.relevance
             << match.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QtRunnerMatch& match) {
    argument.beginStructure();
    argument >> match.id >> match.text >> match.icon >> match.type >> match.relevance >>
        match.properties;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const QtRunnerAction& action) {
    argument.beginStructure();
    argument << action.id << action.text << action.icon;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QtRunnerAction& action) {
    argument.beginStructure();
    argument >> action.id >> action.text >> action.icon;
    argument.endStructure();
    return argument;
}

QtDesktopSearchRunner::QtDesktopSearchRunner(QObject& exported, const DesktopSearchItems& items,
                                             OnText openUrl)
    : QDBusAbstractAdaptor(&exported), items_(items), openUrl_(std::move(openUrl)) {
    qDBusRegisterMetaType<QtRunnerMatch>();
    qDBusRegisterMetaType<QtRunnerMatches>();
    qDBusRegisterMetaType<QtRunnerAction>();
    qDBusRegisterMetaType<QtRunnerActions>();
}

QtRunnerMatches QtDesktopSearchRunner::Match(const QString& query) {
    SONRA_ASSERT_MAIN_THREAD();
    QtRunnerMatches matches;
    for (const auto& match : items_.search({query.toStdString()}, mostMatches))
        matches << toMatch(match);
    return matches;
}

QtRunnerActions QtDesktopSearchRunner::Actions() {
    return {};
}

void QtDesktopSearchRunner::Run(const QString& matchId, const QString& /*actionId*/) {
    openUrl_(matchId.toStdString());
}

QVariantMap QtDesktopSearchRunner::Config() {
    return {{"MinLetterCount", fewestLetters}};
}

}  // namespace sonra
