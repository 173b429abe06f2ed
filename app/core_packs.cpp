// Firmware kept on disk: the encrypted cache of downloads, and packs applied without the service.
#include "app/core.h"

#include "app/app_paths.h"
#include "app/fixed_names.h"
#include "firmware_pack/pack.h"
#include "firmware_pack/pack_files.h"
#include "ui/apply_pack.h"
#include "ui/main_window.h"
#include "ui/splash.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QMessageBox>
#include <QStandardPaths>

void core::open_cache()
{
    const QString path = app_paths::cache_file(m_portable, m_application_path);
    if (!firmware_pack::usable(path)) {
        ++m_stage_total;
        stage(tr("Creating cache"));
        if (firmware_pack::create(path, 3)) {
            log(fixed_names::sources::core, tr("Created the cache file."));
        } else {
            log(fixed_names::sources::core, tr("Failed to create the cache file, no cache will be used."));
            m_cache_in_use = false;
        }
    }
    if (!m_cache_in_use)
        return;

    ++m_stage_total;
    stage(tr("Loading cache"));
    if (m_cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor))
        return;
    log(fixed_names::sources::core, tr("Failed to load the cache file: error code %1.").arg(m_cache.error()));
    m_cache_in_use = false;
    if (m_mode != interactive)
        return;
    const auto answer = QMessageBox::question(m_splash.get(), tr("Cache file error"),
        tr("Unable to load the cache file. Create a new one?"), QMessageBox::Yes | QMessageBox::No);
    if (answer != QMessageBox::Yes)
        return;
    if (QFile::remove(path) && firmware_pack::create(path, 3)
        && m_cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor))
        m_cache_in_use = true;
    else
        QMessageBox::warning(m_splash.get(), tr("Cache file error"), tr("Unable to create the cache file"));
}

QByteArray core::cached_firmware(const QString& firmware)
{
    if (!m_cache_in_use || !m_cache.contains(firmware))
        return {};
    log(fixed_names::sources::core, tr("The update is found in the cache"));
    if (const auto checked = m_checked_firmware.constFind(firmware); checked != m_checked_firmware.constEnd())
        return *checked;
    const QByteArray data = m_cache.extract(firmware, m_crypto.payload_decryptor);
    if (data.isEmpty()) {
        log(fixed_names::sources::core, tr("Failed to decrypt the data from the cache file"));
        m_cache_in_use = false;
        return {};
    }
    // A wrong key can still pass the padding check.
    if (!checked_firmware(firmware, data)) {
        log(fixed_names::sources::core,
            tr("Failed to extract the data from the cache file: cached update data mismatches target."));
        m_cache_in_use = false;
        return {};
    }
    return data;
}

void core::store_next_file()
{
    if (m_storing || m_files_to_store.isEmpty())
        return;
    const auto [firmware, data] = m_files_to_store.takeFirst();
    // Whether to cache is settled here, where the cache is read; the write waits for the check.
    std::optional<firmware_pack::pack_v3::pending_add> add;
    if (m_cache_in_use && !m_cache.contains(firmware) && m_cache.count() < firmware_pack::pack::max_blocks)
        add = m_cache.start_add(firmware, m_client.session_nonce());
    // Keys of its own, with the identity read here: m_crypto asks the client at each call, and
    // the client is the main thread's.
    const delivery::pack_crypto crypto = delivery::make_pack_crypto(m_client.client_id());
    m_storing = true;
    m_store_thread.start([this, firmware = firmware, data = data, add, crypto]() mutable {
        const bool intact = firmware_intact(firmware, data);
        if (intact && add)
            m_cache.write_add(*add, data, crypto.ident_encryptor, crypto.payload_encryptor);
        QMetaObject::invokeMethod(
            this, [this, firmware, data, intact, add] { file_stored(firmware, data, intact, add); },
            Qt::QueuedConnection);
    });
}

void core::file_stored(const QString& firmware, const QByteArray& data, bool intact,
    const std::optional<firmware_pack::pack_v3::pending_add>& add)
{
    m_storing = false;
    m_requested_versions.removeAll(firmware);
    if (!intact) {
        log(fixed_names::sources::core,
            tr("The download of firmware %1 is damaged: it is neither cached nor flashed").arg(firmware));
    } else {
        m_checked_firmware.insert(firmware, data);
        if (add) {
            log(fixed_names::sources::core, tr("Firmware cached"));
            if (!m_cache.finish_add(*add))
                log(fixed_names::sources::core, tr("Error adding to the cache file"));
        } else if (m_cache_in_use && !m_cache.contains(firmware)) {
            log(fixed_names::sources::core,
                tr("The cache file is full with %1 firmwares: no more are added to it")
                    .arg(firmware_pack::pack::max_blocks));
        }
    }
    const bool serving = !m_to_serve.isEmpty();
    m_to_serve << lines_waiting_for(firmware);
    if (!serving)
        serve_waiting_lines();
    store_next_file();
}

void core::serve_waiting_lines()
{
    // Each line starts an upload and logs: a fleet's thousand would hold the window.
    constexpr int lines_per_turn = 32;
    for (int i = 0; i < lines_per_turn && !m_to_serve.isEmpty(); ++i) {
        const QString ident = m_to_serve.takeFirst();
        // Only lines still waiting: a line stopped meanwhile keeps its device as it is. A damaged
        // download isn't kept, and the empty data fails the line.
        if (const auto l = m_manager.find(ident); l && at_step(ident, { tasks::names::flash }))
            apply_firmware(ident, m_checked_firmware.value(offer_of(*l).firmware));
    }
    if (!m_to_serve.isEmpty())
        QMetaObject::invokeMethod(this, [this] { serve_waiting_lines(); }, Qt::QueuedConnection);
}

bool core::checked_firmware(const QString& firmware, const QByteArray& data)
{
    if (data.isEmpty())
        return false;
    // A fleet shares one copy of each firmware: those bytes are hashed once.
    const auto known = m_checked_firmware.constFind(firmware);
    if (known != m_checked_firmware.constEnd() && known->constData() == data.constData()
        && known->size() == data.size())
        return true;
    if (!firmware_intact(firmware, data))
        return false;
    m_checked_firmware.insert(firmware, data);
    return true;
}

bool core::firmware_intact(const QString& firmware, const QByteArray& data)
{
    return !data.isEmpty() && QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex() == firmware.toLatin1();
}

QStringList core::find_packs(bool include_cache) const
{
    QStringList folders;
    if (m_portable)
        folders << m_application_path;
    else
        folders << QStandardPaths::standardLocations(QStandardPaths::DataLocation);
    if (include_cache)
        folders << QStandardPaths::writableLocation(QStandardPaths::CacheLocation);

    QStringList found;
    for (const QString& folder : qAsConst(folders)) {
        const QDir dir(folder);
        for (const QString& name : dir.entryList({ QStringLiteral("*.ovpack") }, QDir::Files, QDir::Name)) {
            const QString path = dir.absoluteFilePath(name);
            if ((include_cache || name != fixed_names::cache_file) && !found.contains(path))
                found << path;
        }
    }
    return found;
}

bool core::load_pack(std::shared_ptr<firmware_pack::pack>& pack, const QString& path)
{
    pack = firmware_pack::open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    return pack && pack->error() == 0;
}

model_structures::device_list core::pack_targets(const std::shared_ptr<firmware_pack::pack>& pack, bool only_present) const
{
    model_structures::device_list list;
    if (!pack)
        return list;
    for (const auto& [serial, index] : pack->targets()) {
        model_structures::pack_target t;
        t.serial = serial;
        t.index = index;
        t.present = !line_by_serial(serial).isEmpty();
        t.sdk_type = pack->sdk_type(pack->ident_at(index));
        if (only_present && !t.present)
            continue;
        list << t;
    }
    return list;
}

bool core::apply_firmware_pack(const std::shared_ptr<firmware_pack::pack>& pack, const model_structures::device_list& targets)
{
    set_running_state(true);
    QHash<QString, QByteArray> extracted; // targets often share a firmware: decrypt it once
    for (const model_structures::pack_target& target : targets) {
        const QString ident = pack->ident_at(target.index);
        auto found = extracted.find(ident);
        if (found == extracted.end())
            found = extracted.insert(ident, pack->extract(ident, m_crypto.payload_decryptor));
        const QByteArray data = *found;
        if (data.isEmpty())
            continue;
        QString functionality = pack->sdk_type(ident);
        if (functionality.isEmpty())
            functionality = m_settings->value(QStringLiteral("firmware_pack_functionality"), QStringLiteral("legacy")).toString();
        for (const QString& line : m_manager.lines()) {
            const auto l = m_manager.find(line);
            if (!l || l->get(tasks::keys::serial).toString() != target.serial)
                continue;
            l->set(tasks::keys::pack_firmware, data);
            l->set(tasks::keys::new_version,
                QVariant::fromValue(client::update_resp::firmware_list { { ident, 0, functionality } }));
            m_manager.add_task(line, tasks::task(tasks::names::apply_pack_firmware));
        }
    }
    // The launch list stays that of the last launch: lines outside it keep their task for later.
    m_manager.launch(false, 0);
    return true;
}

void core::dt_apply_pack_firmware(const QString& ident)
{
    if (const auto l = m_manager.find(ident))
        apply_firmware(ident, l->get(tasks::keys::pack_firmware).toByteArray());
}

QList<pack_list_model::record> core::pack_offers(const QStringList& files, QStringList& errors)
{
    QList<pack_list_model::record> offers;
    for (const QString& path : files) {
        std::shared_ptr<firmware_pack::pack> pack;
        const bool loaded = load_pack(pack, path);
        if (!loaded)
            errors << tr("\"%1\": error code %2").arg(path).arg(pack ? qint64(pack->error()) : -1);
        // The flag is the reverse of the load: the list marks the packs that loaded.
        offers << pack_list_model::record { !loaded, path, loaded ? pack_targets(pack, false) : model_structures::device_list {} };
    }
    return offers;
}

void core::on_window_apply_pack()
{
    const QStringList files = find_packs(false);
    if (files.isEmpty()) {
        QMessageBox::information(m_window.get(), tr("Firmware packages"),
            tr("No firmware packages found. Check their location and try again."));
        return;
    }
    QStringList errors;
    const QList<pack_list_model::record> offers = pack_offers(files, errors);
    if (!errors.isEmpty())
        QMessageBox::critical(m_window.get(), tr("Firmware package error"),
            tr("Unable to load firmware packages:") + QLatin1Char('\n') + errors.join(QLatin1Char('\n')));
    if (!m_apply_pack)
        return;
    m_apply_pack->set_packs(offers);
    m_apply_pack->show();
}

void core::on_apply_pack_accepted(const model_structures::device_list& targets)
{
    if (targets.isEmpty()) {
        warn(tr("Nothing selected"), tr("The updates will not be applied because no selected devices are available."));
        return;
    }
    std::shared_ptr<firmware_pack::pack> pack;
    if (!m_apply_pack || !load_pack(pack, m_apply_pack->current_path())) {
        QMessageBox::critical(m_window.get(), tr("Error"), tr("Error loading the firmware package"));
        return;
    }
    apply_firmware_pack(pack, targets);
}
