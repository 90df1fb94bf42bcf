#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusObjectPath>
#include <QVariantMap>

#include "linux/MediaSession.h"

namespace sonra {

/// The interface org.mpris.MediaPlayer2.Player over a session. Main thread only; belongs to the
/// exported object and borrows the session, which outlives it.
class QtMprisPlayer : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(double Rate READ rate WRITE setRate)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(double MinimumRate READ rate CONSTANT)
    Q_PROPERTY(double MaximumRate READ rate CONSTANT)
    Q_PROPERTY(bool CanGoNext READ canNavigate)
    Q_PROPERTY(bool CanGoPrevious READ canNavigate)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ canPause)
    Q_PROPERTY(bool CanSeek READ canSeek)
    Q_PROPERTY(bool CanControl READ canControl CONSTANT)

  public:
    QtMprisPlayer(QObject* exported, MediaSession& session)
        : QDBusAbstractAdaptor(exported), session_(session) {}

    /// The properties whose changes observers are told.
    static QVariantMap observed(const MediaView& view);

    [[nodiscard]] QString playbackStatus() const;
    [[nodiscard]] QVariantMap metadata() const;
    [[nodiscard]] double rate() const { return 1; }
    [[nodiscard]] double volume() const { return session_.view().volume; }
    [[nodiscard]] qlonglong position() const { return session_.positionUs(); }
    [[nodiscard]] bool canNavigate() const { return session_.view().canNavigate; }
    [[nodiscard]] bool canPlay() const { return session_.view().canPlay; }
    [[nodiscard]] bool canPause() const { return session_.view().canPause; }
    [[nodiscard]] bool canSeek() const { return session_.view().canSeek; }
    [[nodiscard]] bool canControl() const { return true; }
    /// There is one rate; zero is the standard's other word for a pause.
    void setRate(double rate) const;
    void setVolume(double gain) const { session_.changeVolume(gain); }

  public Q_SLOTS:
    void Play() { session_.play(); }
    void Pause() { session_.pause(); }
    void PlayPause() { session_.togglePlayPause(); }
    void Stop() { session_.stop(); }
    void Next() { session_.next(); }
    void Previous() { session_.previous(); }
    void Seek(qlonglong Offset) { session_.seekBy(Offset); }
    void SetPosition(const QDBusObjectPath& TrackId, qlonglong Position);
    /// Without effect: no kind of address is supported.
    void OpenUri(const QString& /*Uri*/) {}

  Q_SIGNALS:
    // Declared for introspection; the session's carrier sends it.
    void Seeked(qlonglong Position);

  private:
    MediaSession& session_;
};

}  // namespace sonra
