#include "sdk/exceptions.h"

#include "tasks/sdk_type.h"

#include <QCoreApplication>

namespace sdk {

namespace {
QString localized(const char* text)
{
    return QCoreApplication::translate("sdk::prototype", text);
}
} // namespace

exception::exception(int code, QString message)
    : m_code(code)
    , m_message(std::move(message))
    , m_what(m_message.toUtf8())
{
}

creating_exception::creating_exception(int type)
    : exception(0, localized(QT_TRANSLATE_NOOP("sdk::prototype", "Unknown SDK type: %1")).arg(type_text(type)))
{
}

creating_exception creating_exception::library_missing(const QString& library, const QString& reason)
{
    return creating_exception(
        4, localized(QT_TRANSLATE_NOOP("sdk::prototype", "Device library %1 can't be used: %2")).arg(library, reason));
}

tmp_file_exception tmp_file_exception::size_mismatch(qint64 expected, qint64 got)
{
    return tmp_file_exception(1, localized(QT_TRANSLATE_NOOP("sdk::prototype", "Temporaty file validation: size mismatch: expected %1, got %2")).arg(expected).arg(got));
}

tmp_file_exception tmp_file_exception::data_mismatch()
{
    return tmp_file_exception(2, localized(QT_TRANSLATE_NOOP("sdk::prototype", "Temporary file validation: data mismatch")));
}

tmp_file_exception tmp_file_exception::not_set()
{
    return tmp_file_exception(3, localized(QT_TRANSLATE_NOOP("sdk::prototype", "Temporary file access: file not set")));
}

} // namespace sdk
