// The typed JSON of vornctl's documents: the text forms of the host view (the forms vorn_tool
// takes and saves) turned into numbers, arrays and objects by the kind of each item.
#include "vornctl/json_out.hpp"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace
{

bool digits(const std::string &text)
{
    return !text.empty() && text.size() <= 10 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

CtlJson number_or_text(const std::string &text)
{
    if (digits(text))
        return CtlJson(strtoull(text.c_str(), nullptr, 10));
    return CtlJson(text);
}

// "address A netmask M gateway G" as {"address": "A", "netmask": "M", "gateway": "G"}.
CtlJson entry_object(const std::string &text)
{
    CtlJson obj = CtlJson::object();
    const std::vector<std::string> words = ctl_split(text, ' ');
    for (size_t i = 0; i + 1 < words.size(); i += 2)
        obj[words[i]] = number_or_text(words[i + 1]);
    return obj;
}

std::string utc_now()
{
    char text[32] = {};
    const time_t now = time(nullptr);
    tm when{};
    if (gmtime_r(&now, &when) == nullptr ||
        strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &when) == 0)
        return "";
    return text;
}

template <typename T> CtlJson or_null(const std::optional<T> &value)
{
    return value ? CtlJson(*value) : CtlJson(nullptr);
}

} // namespace

CtlJson ctl_typed(ItemKind kind, const std::string &text)
{
    switch (kind) {
    case ItemKind::kNumber:
        return number_or_text(text);
    case ItemKind::kNumberList: {
        CtlJson list = CtlJson::array();
        for (const std::string &part : ctl_split(text, ','))
            list.push_back(number_or_text(part));
        return list;
    }
    case ItemKind::kDscpMap: {
        CtlJson list = CtlJson::array();
        for (const std::string &part :
             text.empty() ? std::vector<std::string>{} : ctl_split(text, ',')) {
            const size_t colon = part.find(':');
            list.push_back({{"dscp", number_or_text(part.substr(0, colon))},
                            {"tc", number_or_text(part.substr(colon + 1))}});
        }
        return list;
    }
    case ItemKind::kEntries:
        return entry_object(text);
    default:
        return CtlJson(text);
    }
}

CtlJson ctl_item_json(const ItemView &item)
{
    const ItemKind kind = item.def->kind;
    auto typed = [kind](const std::optional<std::string> &text) {
        return text ? ctl_typed(kind, *text) : CtlJson(nullptr);
    };
    auto entries = [kind](const std::optional<std::vector<std::string>> &list) {
        if (!list)
            return CtlJson(nullptr);
        CtlJson array = CtlJson::array();
        for (const std::string &e : *list)
            array.push_back(ctl_typed(kind, e));
        return array;
    };
    CtlJson j;
    j["key"] = item.key;
    j["kind"] = item.list ? "list" : "value";
    j["type"] = item_kind_word(kind);
    if (!item.list) {
        j["buffer"] = item.buffer;
        j["saved"] = typed(item.saved_canon);
        // A saved text that does not read in the item's form is kept as the file holds it.
        if (item.saved && !item.saved_canon)
            j["saved_text"] = *item.saved;
        j["live"] = typed(item.live);
    } else {
        j["saved"] = entries(item.saved_entries);
        j["live"] = entries(item.live_entries);
    }
    if (item.def == &kGatewayItem)
        j["holder"] = or_null(item.holder);
    j["state"] = ctl_state_word(item.state);
    if (!item.saved_error.empty())
        j["saved_error"] = item.saved_error;
    if (!item.live_error.empty())
        j["live_error"] = item.live_error;
    CtlJson diffs = CtlJson::array();
    for (const ItemDiff &d : item.diffs) {
        const std::string saved =
            item.list ? d.saved : item.def->canonical(d.saved).value_or(d.saved);
        diffs.push_back({{"saved", ctl_typed(kind, saved)}, {"live", typed(d.live)}});
    }
    j["differences"] = diffs;
    return j;
}

CtlJson ctl_doc_head(const char *schema, const HostView &host)
{
    CtlJson doc;
    doc["schema"] = schema;
    doc["schema_version"] = kCtlSchemaVersion;
    doc["generated"] = utc_now();
    doc["config"] = {{"path", host.conf_path},
                     {"readable", host.conf_ret == 0},
                     {"error", host.conf_ret == 0 ? CtlJson(nullptr) : CtlJson(host.conf_ret)}};
    return doc;
}

CtlJson ctl_absent_json(const HostView &host)
{
    CtlJson absent = CtlJson::array();
    for (const AbsentId &id : host.absent)
        absent.push_back({{"phy_id", or_null(id.phy_id)}, {"logic_id", or_null(id.logic_id)}});
    return absent;
}

void ctl_print_json(const CtlJson &doc)
{
    // Device texts may hold any byte: what is not UTF-8 is replaced rather than refused.
    const std::string text = doc.dump(2, ' ', false, CtlJson::error_handler_t::replace);
    fputs(text.c_str(), stdout);
    fputc('\n', stdout);
}
