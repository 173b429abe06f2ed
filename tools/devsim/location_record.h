#pragma once

#include <QJsonObject>
#include <QString>

namespace devsim
{

// A device's "General.Location" record, kept as the members it sends.
struct location_record {
    QJsonObject members = factory();

    static QJsonObject factory();

    QString language() const { return members.value("Language").toString(); }
    void set_language(const QString& language) { members.insert("Language", language); }

    // Takes the members present; a member of the wrong type leaves the record
    // unchanged and gives false with the reason. Unknown members are kept.
    bool merge(const QJsonObject& changes, QString* error);
};

} // namespace devsim
