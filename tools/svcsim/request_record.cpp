#include "tools/svcsim/request_record.h"

namespace svcsim
{

QJsonObject request_record::to_json() const
{
    return QJsonObject {
        { "sequence", double(sequence) },
        { "kind", kind_name(kind) },
        { "path", path },
        { "serial", serial },
        { "version", version },
        { "query", query },
        { "force", force },
        { "nonce", nonce },
        { "method", method },
        { "params", params },
        { "id", id },
        { "answer", answer },
        { "fault", fault },
        { "delay_ms", delay_ms },
        { "time_ms", double(time_ms) },
    };
}

} // namespace svcsim
