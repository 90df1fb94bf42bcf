// Pictures of the windows in all their states, for docs/shots: sonra_shots FOLDER. The scale is
// QT_SCALE_FACTOR's.
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <cstdio>

#include "shots/Shots.h"

namespace {

/// A screen on which a menu has the room that it has on a desktop, at every scale.
void provideScreen(const QString& path) {
    const double scale = qEnvironmentVariable("QT_SCALE_FACTOR", "1").toDouble();
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) qFatal("no place for the screen's description");
    file.write(QStringLiteral(R"({"screens": [{"name": "desk", "x": 0, "y": 0, "width": %1,
 "height": %2, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}]})")
                   .arg(qRound(1920 * scale))
                   .arg(qRound(1080 * scale))
                   .toUtf8());
    file.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + path.toLocal8Bit());
}

/// The platform without a display says of each menu what it can't do for it; the rest matters.
void say(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& message) {
    if (message.startsWith(u"This plugin does not support")) return;
    std::fprintf(stderr, "sonra_shots: %s\n", qPrintable(message));
}

}  // namespace

int main(int argc, char** argv) {
    qInstallMessageHandler(say);
    const QTemporaryDir own;
    provideScreen(own.filePath("screen.json"));
    const QApplication application(argc, argv);
    if (argc != 2 || !QFileInfo(argv[1]).isDir()) {
        std::fputs("usage: sonra_shots FOLDER\n", stderr);
        return 2;
    }
    const QDir folder(argv[1]);
    const bool drawn = sonra::shots::drawCaptions(folder) && sonra::shots::drawMenus(folder) &&
                       sonra::shots::drawSearch(folder) && sonra::shots::drawTrayIcons(folder);
    return drawn ? 0 : 1;
}
