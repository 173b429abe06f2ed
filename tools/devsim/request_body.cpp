#include "tools/devsim/request_body.h"

#include <QJsonDocument>
#include <QJsonParseError>

#include <vector>

namespace devsim
{

namespace
{

    bool parse_object(const QByteArray& text, QJsonObject* out)
    {
        QJsonParseError error {};
        const QJsonDocument doc = QJsonDocument::fromJson(text, &error);
        if (error.error != QJsonParseError::NoError || !doc.isObject())
            return false;
        *out = doc.object();
        return true;
    }

    // Places where the text can be cut and closed again: after an opening bracket or
    // before a comma, outside strings, with the brackets open at that point.
    struct cut_point {
        int at;
        QByteArray open;
    };

    std::vector<cut_point> cut_points(const QByteArray& text)
    {
        std::vector<cut_point> points;
        QByteArray open;
        bool in_string = false;
        bool escaped = false;
        for (int i = 0; i < text.size(); ++i) {
            const char c = text.at(i);
            if (in_string) {
                if (escaped)
                    escaped = false;
                else if (c == '\\')
                    escaped = true;
                else if (c == '"')
                    in_string = false;
                continue;
            }
            switch (c) {
            case '"':
                in_string = true;
                break;
            case '{':
            case '[':
                open += c;
                points.push_back({ i + 1, open });
                break;
            case '}':
            case ']':
                if (!open.isEmpty())
                    open.chop(1);
                break;
            case ',':
                if (!open.isEmpty())
                    points.push_back({ i, open });
                break;
            default:
                break;
            }
        }
        return points;
    }

} // namespace

QJsonObject parse_request_body(const QByteArray& payload, bool* ok, bool* repaired)
{
    *ok = false;
    if (repaired)
        *repaired = false;

    QByteArray text = payload;
    while (!text.isEmpty() && (text.endsWith('\0') || text.endsWith('\n') || text.endsWith('\r') || text.endsWith(' ')))
        text.chop(1);

    QJsonObject object;
    if (parse_object(text, &object)) {
        *ok = true;
        return object;
    }

    // Only a text that opens an object can be a cut-short object.
    if (!text.startsWith('{'))
        return {};
    const std::vector<cut_point> points = cut_points(text);
    const int tries = qMin<int>(int(points.size()), 64);
    for (int n = 0; n < tries; ++n) {
        const cut_point& p = points[points.size() - 1 - size_t(n)];
        QByteArray attempt = text.left(p.at);
        for (int k = p.open.size() - 1; k >= 0; --k)
            attempt += p.open.at(k) == '{' ? '}' : ']';
        if (parse_object(attempt, &object)) {
            *ok = true;
            if (repaired)
                *repaired = true;
            return object;
        }
    }
    return {};
}

} // namespace devsim
