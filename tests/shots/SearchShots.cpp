// Pictures of the search panel in all its states, with the rows that real searches give.
#include <QApplication>
#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "search/SearchRows.h"
#include "search/Searcher.h"
#include "shots/Canvas.h"
#include "shots/Shots.h"
#include "widgets/DesktopLook.h"
#include "widgets/SearchField.h"
#include "widgets/SearchPanelWindow.h"

namespace {

using sonra::Look;
using sonra::SearchPanelWindow;
using sonra::SessionMeta;

constexpr int searchMargin = 48;
constexpr double now = 1'790'000'000;
constexpr double hour = 3600;

struct SearchShot {
    std::string name;
    std::string query;
    std::size_t selected = 0;
    std::string expanded = {};
    std::string strip = {};
    std::vector<SessionMeta> sessions = {};
    std::set<std::string> attached = {"9f31c2aa-1"};
    Look look = {};
};

SessionMeta session(const std::string& id, const std::string& folder, const std::string& prompt,
                    double hoursAgo) {
    SessionMeta made;
    made.sessionId = id;
    made.cwd = "/home/me/code/" + folder;
    made.firstUserPrompt = prompt;
    made.source = "claude-code";
    made.mtime = now - hoursAgo * hour;
    return made;
}

std::vector<SessionMeta> someSessions() {
    return {
        session("9f31c2aa-1", "tts-offload",
                "Move the retry loop out of the tailer and keep the cursor where it was when "
                "the worker dies in the middle of a chunk",
                2),
        session("51ab0e77-2", "tts-offload", "Why does the worker retry twice after a timeout?", 5),
        session("c07719d0-3", "bridge", "Pairing: five wrong tries void the code", 20),
        session("77d2e981-4", "tts-web",
                "Add a retry button to the error row and test it in the browser", 26),
        session("0b6f7f1d-5", "sonra", "Why does the panel flicker on resize?", 49),
        session("d4e5f6a7-6", "kernel_module", "Q&A: locks & waits <b>in</b> irq_handler", 90)};
}

/// Twelve folders by a name of one kind, each with two sessions: more rows than have room.
std::vector<SessionMeta> manySessions() {
    std::vector<SessionMeta> many;
    for (int i = 0; i < 12; ++i) {
        const auto number = std::to_string(i / 2 + 1);
        many.push_back(session("a" + std::to_string(1000000 + i * 7919) + "-x", "service-" + number,
                               "Step " + std::to_string(i) + " of the plan for the service",
                               3.0 * (i + 1)));
    }
    return many;
}

std::vector<SessionMeta> oddSessions() {
    return {
        session("f6a7b8c9-1", "商店", "修正结账页面的货币格式，使金额在所有语言中都正确显示", 1),
        session("a7b8c9d0-2", "مدونة",
                "كتابة مقدمة المقال الجديد عن قراءة ردود البرامج بصوت عال مع أمثلة كثيرة من "
                "worker process حتى لا تتسع لها السطر الواحد",
                2),
        session("b8c9d0e1-3", "עברית", "העברתי את לולאת הניסיונות לפונקציה retryLoop()", 3),
        session("c9d0e1f2-4", "launch-🚀",
                "Shipped it 🚀 — all green ✅, the family 👨‍👩‍👧‍👦 of flaky "
                "tests is gone 🎉",
                4),
        session("d0e1f2a3-5",
                "a-folder-with-a-name-that-is-much-longer-than-any-folder-ought-to-have",
                "Donaudampfschifffahrtsgesellschaftskapitänsmützenabzeichenverordnung lesen "
                "und das Wort nicht umbrechen, sondern kürzen",
                5),
        session("e1f2a3b4-6", "naïve-café", "Ça marche à l’œil — n̈ combines", 6)};
}

/// What the panel would be told about this query, by the same logic.
void tell(SearchPanelWindow& panel, const SearchShot& shot) {
    const sonra::SessionSnapshot snapshot(shot.sessions);
    auto hits = sonra::Searcher::search(snapshot, shot.query, shot.attached, now);
    if (!shot.expanded.empty())
        std::erase_if(hits, [&](const sonra::SearchHit& hit) {
            const auto* project = std::get_if<sonra::ProjectHit>(&hit);
            return (project
                        ? project->name
                        : sonra::SearchRows::folderOf(*std::get<sonra::SessionHit>(hit).session)) !=
                   shot.expanded;
        });
    std::vector<sonra::SearchRow> rows;
    for (const auto& hit : hits)
        rows.push_back(sonra::SearchRows::row(hit, shot.attached, shot.expanded, now));
    panel.setEmptyText(sonra::SearchRows::emptyState(shot.query, snapshot.empty()));
    panel.setRows(rows);
    panel.setScanningStrip(shot.strip);
    if (shot.selected >= rows.size()) return panel.setFooter("");
    panel.setFooter(sonra::SearchRows::footer(&hits[shot.selected]));
}

bool takeSearch(const SearchShot& shot, const QDir& folder) {
    sonra::DesktopLook look(shot.look);
    SearchPanelWindow panel(look);
    panel.setFrame({{100, 100}, {640, 420}});
    auto* field = panel.findChild<QLineEdit*>();
    field->setText(QString::fromStdString(shot.query));
    panel.activate();
    // Opened anew the query is selected; here somebody has typed it.
    field->deselect();
    tell(panel, shot);
    QCoreApplication::processEvents();
    panel.select(shot.selected);
    const auto picture = panel.grab();
    const QSize size(640 + 2 * searchMargin, 420 + 2 * searchMargin);
    sonra::shots::Canvas canvas(size, shot.look.dark);
    const auto shadow = panel.geometry().topLeft() - QPoint(100, 100);
    canvas.put(picture, QPoint(searchMargin, searchMargin) + shadow, panel.mask());
    panel.orderOut();
    return canvas.save(folder, "search-" + shot.name);
}

std::vector<SearchShot> searchStates() {
    return {
        {.name = "recents", .query = "", .selected = 1, .sessions = someSessions()},
        {.name = "hits", .query = "tts retry", .selected = 2, .sessions = someSessions()},
        {.name = "project", .query = "tts", .sessions = someSessions()},
        {.name = "expanded", .query = "tts", .expanded = "tts-offload", .sessions = someSessions()},
        {.name = "many", .query = "service", .selected = 10, .sessions = manySessions()},
        {.name = "odd-words",
         .query = "",
         .selected = 1,
         .sessions = oddSessions(),
         .attached = {}},
        {.name = "odd-hits", .query = "e", .selected = 0, .sessions = oddSessions()},
        {.name = "right-to-left", .query = "مدونة", .sessions = oddSessions()},
        {.name = "none", .query = "zzz", .sessions = someSessions()},
        {.name = "none-prefix", .query = "project:zzz", .sessions = someSessions()},
        {.name = "none-long",
         .query = "Donaudampfschifffahrtsgesellschaftskapitänsmützenabzeichenverordnung und noch "
                  "viele andere Wörter, die in keiner einzigen der gefundenen Sitzungen stehen, "
                  "weil sie niemand schreiben würde",
         .sessions = someSessions()},
        {.name = "no-sessions", .query = ""},
        {.name = "scanning",
         .query = "release",
         .strip = "Indexing… (1204 / 5000)",
         .sessions = someSessions()},
        {.name = "no-compositor",
         .query = "tts retry",
         .selected = 1,
         .sessions = someSessions(),
         .look = {.composited = false}},
        {.name = "high-contrast",
         .query = "tts retry",
         .selected = 1,
         .sessions = someSessions(),
         .look = {.highContrast = true}},
    };
}

}  // namespace

bool sonra::shots::drawSearch(const QDir& folder) {
    // At scale 2 only what it changes.
    const bool isLarge = qApp->devicePixelRatio() > 1;
    return std::ranges::all_of(searchStates(), [&](SearchShot shot) {
        if (isLarge && shot.name != "hits" && shot.name != "odd-words") return true;
        if (!takeSearch(shot, folder)) return false;
        shot.name += "-light";
        shot.look.dark = false;
        return takeSearch(shot, folder);
    });
}
