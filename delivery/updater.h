#pragma once

#include <QDateTime>
#include <QHostAddress>
#include <QList>
#include <QMetaType>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>

#include <cstdint>

class QNetworkReply;

// Keeps the program itself current: asks the build repository every 30 minutes whether
// a newer build exists, announces each build once, and on request saves the new
// executable beside the program as tmp-newer-version.bin for the separate updater
// program, which swaps the files once the program has ended.
class updater final : public QObject
{
    Q_OBJECT
public:
    struct change
    {
        QString message;
        bool important = false;
        int32_t since_rev = 0;
    };

    struct update_info
    {
        int32_t build = 0;
        QDateTime time;
        QList<change> changes;
    };

    // Beside the program: the downloaded build, and the mark of an updater at work.
    static inline const QString update_file = QStringLiteral("tmp-newer-version.bin");
    static inline const QString lock_file = QStringLiteral("client_updating.lock");
    static inline const QString path = QStringLiteral("repo/");
    static inline const QString default_base_url = QStringLiteral("http://update.kelmar.org:8088/repo/");
    static inline const QString time_format = QStringLiteral("dd.MM.yyyy HH:mm:ss");
    static constexpr int check_interval_ms = 1800000;
    // A smaller answer can't be a build of the program.
    static constexpr int min_file_size = 51200;
    // How many changes the notes list before they only count the rest.
    static constexpr int shown_changes = 10;

    // platform: 1 Linux, 2 Windows 64 bit, 3 Windows 32 bit; build: this program's number;
    // folder: where the program and its updater live.
    updater(int platform, int build, const QString& folder, QObject* parent = nullptr);
    ~updater() override;
    Q_DISABLE_COPY_MOVE(updater)

    // Checks at once, then every check_interval_ms.
    void start();
    void stop();
    bool checking() const { return m_timer.isActive(); }
    void check();
    // Fetches the build last announced; postponed: it is installed at the next start.
    void download(bool postponed);
    bool postponed() const { return m_postponed; }
    // The repository on the configured service host.
    void set_server(const QHostAddress& address, uint16_t port);

    QUrl check_url() const;
    QUrl file_url() const;
    int32_t offered_build() const { return m_offered_build; }
    QString folder() const { return m_folder; }

    // The release notes of an offer as rich text.
    static QString changes_html(const update_info& info);
    // "l", "w64", "w32"; empty for an unknown platform.
    static QString platform_word(int platform);
    // The separate program that swaps the files; empty for an unknown platform.
    static QString updater_program(int platform);

signals:
    void new_update_available(const updater::update_info& info);
    void downloaded();
    // The downloaded file was refused or couldn't be saved; the text says which.
    void download_failed(const QString& text);

private slots:
    void timeout();
    void finished(QNetworkReply* reply);

private:
    void check_answer(const QByteArray& body);
    void file_answer(const QByteArray& body, bool transport_ok);

    QTimer m_timer;
    QNetworkAccessManager m_network;
    int32_t m_offered_build = 0;
    bool m_postponed = false;
    QString m_base_url = default_base_url;
    int m_platform;
    int m_build;
    QString m_folder;
};

Q_DECLARE_METATYPE(updater::update_info)

// Starts the platform's updater program in `folder`, detached, with no arguments.
bool launch_updater(int platform, const QString& folder);
// At start-up: when a downloaded build waits in `folder`, hands it to the updater program
// (unless one is at work already, as its lock file says), posts the application's quit
// and returns true; the program must not go on then. False when nothing waits or the
// updater program can't be started.
bool install_pending(int platform, const QString& folder);
