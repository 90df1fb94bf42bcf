#include "linux/QtMprisPlayer.h"

#include <QStringList>

namespace sonra {
namespace {

/// Clients take the id for an object path and fall over anything else.
QString trackPath(std::uint64_t track) {
    return "/dev/trelnivorn/sonra/track/" + QString::number(track);
}

QString statusOf(PlaybackState state) {
    switch (state) {
        case PlaybackState::playing:
            return "Playing";
        case PlaybackState::paused:
            return "Paused";
        case PlaybackState::stopped:
            break;
    }
    return "Stopped";
}

QVariantMap metadataOf(const MediaView& view) {
    QVariantMap map;
    if (view.track == 0) return map;
    map["mpris:trackid"] = QVariant::fromValue(QDBusObjectPath(trackPath(view.track)));
    if (view.lengthUs > 0) map["mpris:length"] = static_cast<qlonglong>(view.lengthUs);
    map["xesam:title"] = QString::fromStdString(view.title);
    if (!view.artist.empty())
        map["xesam:artist"] = QStringList{QString::fromStdString(view.artist)};
    if (!view.album.empty()) map["xesam:album"] = QString::fromStdString(view.album);
    return map;
}

}  // namespace

QVariantMap QtMprisPlayer::observed(const MediaView& view) {
    return {{"PlaybackStatus", statusOf(view.state)},
            {"Metadata", metadataOf(view)},
            {"Volume", view.volume},
            {"CanGoNext", view.canNavigate},
            {"CanGoPrevious", view.canNavigate},
            {"CanPlay", view.canPlay},
            {"CanPause", view.canPause},
            {"CanSeek", view.canSeek}};
}

QString QtMprisPlayer::playbackStatus() const {
    return statusOf(session_.view().state);
}

QVariantMap QtMprisPlayer::metadata() const {
    return metadataOf(session_.view());
}

void QtMprisPlayer::setRate(double rate) const {
    if (rate == 0) session_.pause();
}

void QtMprisPlayer::SetPosition(const QDBusObjectPath& TrackId, qlonglong Position) {
    const auto track = session_.view().track;
    if (TrackId.path() == trackPath(track)) session_.seekTo(track, Position);
}

}  // namespace sonra
