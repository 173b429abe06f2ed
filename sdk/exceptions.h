#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace sdk {

// Thrown on the caller's thread only: at worker creation and when writing the temporary file.
class exception : public std::exception
{
public:
    exception(int code, QString message);
    const char* what() const noexcept override { return m_what.constData(); }
    int code() const { return m_code; }
    const QString& message() const { return m_message; }

private:
    int m_code;
    QString m_message;
    QByteArray m_what;
};

class creating_exception : public exception
{
public:
    explicit creating_exception(int type);
    // A backend whose closed library can't be loaded; names the library.
    static creating_exception library_missing(const QString& library, const QString& reason);

private:
    using exception::exception;
};

class tmp_file_exception : public exception
{
public:
    static tmp_file_exception size_mismatch(qint64 expected, qint64 got);
    static tmp_file_exception data_mismatch();
    static tmp_file_exception not_set();

private:
    using exception::exception;
};

} // namespace sdk
