// vornctl apply, the plan: the desired settings read from a show --json document, and the
// least set of changes that brings the host to them, each as the command lines of the tool
// that set and save it.
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

#include "commands/saved_item.hpp"
#include "vornctl/apply.hpp"

namespace
{

using nlohmann::json;

// The document show --json prints.
constexpr const char *kShowSchema = "vornctl-show";
constexpr int kShowSchemaVersion = 2;

// ---- The document ----------------------------------------------------------------------------

/// A word of a command line: the tool never takes a blank, a control character or nothing.
bool is_word(const std::string &text)
{
    return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == 0x7f;
    });
}

std::string number_text(const json &v)
{
    return v.is_number_unsigned() ? std::to_string(v.get<uint64_t>())
                                  : std::to_string(v.get<int64_t>());
}

/// A scalar in the text its command takes.
std::optional<std::string> scalar_text(const json &v)
{
    if (v.is_string())
        return v.get<std::string>();
    if (v.is_number_integer())
        return number_text(v);
    return std::nullopt;
}

/// A value item's desired value in the form its command takes: text or number; a list of
/// eight as an array of numbers; the DSCP map as {"dscp": tc} or [{"dscp": d, "tc": t}, ...].
std::optional<std::string> value_text(const SavedItem &def, const json &v)
{
    if (auto text = scalar_text(v))
        return text;
    std::string out;
    if (v.is_array() && def.kind == ItemKind::kNumberList) {
        for (const json &e : v) {
            if (!e.is_number_integer())
                return std::nullopt;
            out += (out.empty() ? "" : ",") + number_text(e);
        }
        return out;
    }
    if ((v.is_object() || v.is_array()) && def.kind == ItemKind::kDscpMap) {
        // {"26": 3, ...}, or the entries as show prints them: [{"dscp": 26, "tc": 3}, ...].
        std::map<unsigned long, std::string> by_dscp;
        auto add = [&](const std::optional<std::string> &dscp, const json &tc) {
            const auto d = dscp ? item_canonical_number(*dscp) : std::nullopt;
            const auto t = scalar_text(tc);
            if (!d || !t)
                return false;
            by_dscp[std::stoul(*d)] = *t;
            return true;
        };
        for (const auto &[dscp, tc] : v.items()) {
            const bool ok = v.is_object()
                                ? add(dscp, tc)
                                : tc.is_object() && tc.contains("dscp") && tc.contains("tc") &&
                                      add(scalar_text(tc["dscp"]), tc["tc"]);
            if (!ok)
                return std::nullopt;
        }
        for (const auto &[d, t] : by_dscp)
            out += (out.empty() ? "" : ",") + std::to_string(d) + ":" + t;
        return out;
    }
    return std::nullopt;
}

/// The keywords of the entries of a list, in the order the add command takes them.
constexpr const char *kEntryWords[] = {"dev",     "dir", "address", "ip",  "ip_mask",
                                       "netmask", "via", "gateway", "mac", "table"};

/// A list entry in the keyword form of its command: the text itself, or an object of its
/// keywords ({"address": A, "netmask": M, "gateway": G}).
std::optional<std::string> entry_text(const json &v)
{
    if (v.is_string())
        return v.get<std::string>();
    if (!v.is_object())
        return std::nullopt;
    std::string out;
    size_t used = 0;
    for (const char *word : kEntryWords) {
        const auto it = v.find(word);
        if (it == v.end())
            continue;
        const auto text = scalar_text(*it);
        if (!text)
            return std::nullopt;
        out += (out.empty() ? "" : " ") + std::string(word) + " " + *text;
        ++used;
    }
    return used == v.size() ? std::optional(out) : std::nullopt;
}

bool read_item(const SavedItem &def, const json &doc, DesiredItem *item, std::string *error)
{
    // An item as show prints it ({"saved": ..., "live": ...}): the saved value is wanted.
    if (!doc.is_object() || !doc.contains("saved")) {
        *error = "is not an object with \"saved\"";
        return false;
    }
    const json &v = doc["saved"];
    item->name = def.key;
    // A saved text that does not read in the item's form (show's "saved_text") is left alone.
    if (v.is_null() && doc.contains("saved_text")) {
        item->name.clear();
        return true;
    }
    if (v.is_null()) {
        item->remove = true;
        return true;
    }
    if (def.kind == ItemKind::kEntries) {
        if (!v.is_array()) {
            *error = "saved is not an array of entries";
            return false;
        }
        for (const json &e : v) {
            const auto text = entry_text(e);
            if (!text || text->empty()) {
                *error = "has an entry that is neither a text nor an object of its keywords";
                return false;
            }
            item->entries.push_back(*text);
        }
        return true;
    }
    const auto text = value_text(def, v);
    if (!text || !is_word(*text)) {
        *error = std::string("saved is not ") + item_kind_word(def.kind) +
                 " in a form its command takes";
        return false;
    }
    item->value = *text;
    return true;
}

} // namespace

bool ctl_read_desired(const std::string &text, std::vector<DesiredDevice> *devices,
                      std::string *error)
{
    const json doc = json::parse(text, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) {
        *error = "not a JSON document";
        return false;
    }
    if (doc.value("schema", "") != kShowSchema ||
        doc.value("schema_version", 0) != kShowSchemaVersion) {
        *error = std::string("not a ") + kShowSchema + " document of schema version " +
                 std::to_string(kShowSchemaVersion);
        return false;
    }
    const auto list = doc.find("devices");
    if (list == doc.end() || !list->is_array()) {
        *error = "no \"devices\" array";
        return false;
    }
    std::set<uint32_t> seen;
    for (const json &d : *list) {
        DesiredDevice dev;
        const auto id = d.is_object() ? d.find("phy_id") : d.end();
        if (!d.is_object() || id == d.end() || !id->is_number_unsigned() ||
            id->get<uint64_t>() > 99) {
            *error = "a device without a physical id \"phy_id\"";
            return false;
        }
        dev.phy_id = id->get<uint32_t>();
        if (!seen.insert(dev.phy_id).second) {
            *error = "device " + std::to_string(dev.phy_id) + " is given twice";
            return false;
        }
        const auto items = d.find("items");
        if (items != d.end() && !items->is_object()) {
            *error = "dev " + std::to_string(dev.phy_id) + ": \"items\" is not an object";
            return false;
        }
        for (const SavedItem *def : g_saved_items) {
            if (items == d.end() || !items->contains(def->key))
                continue;
            DesiredItem item;
            std::string why;
            if (!read_item(*def, (*items)[def->key], &item, &why)) {
                *error = "dev " + std::to_string(dev.phy_id) + " " + def->key + ": " + why;
                return false;
            }
            if (!item.name.empty())
                dev.items.push_back(std::move(item));
        }
        if (items != d.end()) {
            for (const auto &[name, v] : items->items()) {
                (void)v;
                if (saved_item(name) == nullptr) {
                    *error = "dev " + std::to_string(dev.phy_id) + ": no saved item " + name;
                    return false;
                }
            }
        }
        devices->push_back(std::move(dev));
    }
    return true;
}

// ---- The plan --------------------------------------------------------------------------------

namespace
{

/// Two texts of an item's value that mean the same value.
bool same(const SavedItem &def, const std::optional<std::string> &a, const std::string &b)
{
    if (!a)
        return false;
    const auto ca = def.canonical != nullptr ? def.canonical(*a) : std::nullopt;
    const auto cb = def.canonical != nullptr ? def.canonical(b) : std::nullopt;
    return ca && cb ? *ca == *cb : *a == b;
}

/// "set_words" with {name} replaced by `values[name]`, split into words.
std::vector<std::string> expand(const char *words, const std::map<std::string, std::string> &values)
{
    std::vector<std::string> out;
    std::string text = words;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        std::string word = text.substr(start, end - start);
        if (word.size() > 2 && word.front() == '{' && word.back() == '}') {
            const auto it = values.find(word.substr(1, word.size() - 2));
            word = it != values.end() ? it->second : "";
        }
        out.push_back(word);
        start = end + 1;
    }
    return out;
}

/// A route entry "address A netmask M gateway G" as (destination and netmask, gateway), in
/// canonical form; nullopt when it does not read.
struct RouteEntry {
    std::string id; ///< "address A netmask M"
    std::string gateway;
};

std::optional<RouteEntry> route_of(const std::string &text)
{
    char a[32], m[32], g[32];
    char tail = 0;
    if (sscanf(text.c_str(), "address %31s netmask %31s gateway %31s %c", a, m, g, &tail) != 3)
        return std::nullopt;
    const auto ca = item_canonical_ipv4(a), cm = item_canonical_ipv4(m),
               cg = item_canonical_ipv4(g);
    if (!ca || !cm || !cg)
        return std::nullopt;
    return RouteEntry{"address " + *ca + " netmask " + *cm, *cg};
}

std::map<std::string, std::string> routes_of(const std::optional<std::vector<std::string>> &list)
{
    std::map<std::string, std::string> out;
    for (const std::string &text : list.value_or(std::vector<std::string>{})) {
        if (const auto r = route_of(text))
            out[r->id] = r->gateway;
    }
    return out;
}

std::string join(const std::vector<std::string> &list, const char *sep)
{
    std::string out;
    for (const std::string &s : list)
        out += (out.empty() ? "" : sep) + s;
    return out;
}

std::optional<std::string> joined(const std::optional<std::vector<std::string>> &list)
{
    return list ? std::optional(join(*list, ", ")) : std::nullopt;
}

std::vector<std::string> split(const std::string &text)
{
    std::vector<std::string> out;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(' ', start);
        if (end == std::string::npos)
            end = text.size();
        if (end > start)
            out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

class Planner
{
  public:
    Planner(const DeviceView &dev, const DesiredDevice &want, std::vector<Change> *out)
        : dev_(dev), want_(want), out_(out)
    {
    }

    bool plan(std::string *error)
    {
        std::set<std::string> done; // the pairs already planned at their first item
        for (const DesiredItem &item : want_.items) {
            const SavedItem &def = *saved_item(item.name);
            if (done.count(item.name) != 0)
                continue;
            if (def.partner != nullptr)
                done.insert(def.partner);
            if (def.kind == ItemKind::kEntries && std::string_view(def.key) != "routes") {
                if (!check_unchanged(def, item, error))
                    return false;
            } else if (item.remove)
                plan_removal(def);
            else if (def.kind == ItemKind::kEntries)
                plan_routes(def, item);
            else if (def.kind == ItemKind::kDscpMap)
                plan_dscp(def, item);
            else if (!plan_value(def, item, error))
                return false;
        }
        return true;
    }

  private:
    const ItemView &view(const char *name) const { return *ctl_find_item(dev_, name); }

    /// An entry as the set of its keyword pairs, whatever their order.
    static std::string entry_id(const std::string &text)
    {
        const std::vector<std::string> words = split(text);
        std::vector<std::string> pairs;
        for (size_t i = 0; i + 1 < words.size(); i += 2)
            pairs.push_back(words[i] + " " + words[i + 1]);
        std::sort(pairs.begin(), pairs.end());
        return join(pairs, " ");
    }

    // ARP entries and policy rules and routes are not changed: a document may name them only
    // as the file saves them (a show --json document does).
    bool check_unchanged(const SavedItem &def, const DesiredItem &item, std::string *error) const
    {
        std::multiset<std::string> want, saved;
        for (const std::string &e : item.entries)
            want.insert(entry_id(e));
        for (const std::string &e :
             view(def.key).saved_entries.value_or(std::vector<std::string>{}))
            saved.insert(entry_id(e));
        if (want == saved)
            return true;
        *error = "dev " + std::to_string(dev_.phy_id) + " " + def.key +
                 ": apply does not change these entries (vorn_tool sets them)";
        return false;
    }

    const DesiredItem *wanted(const char *name) const
    {
        for (const DesiredItem &item : want_.items) {
            if (item.name == name)
                return &item;
        }
        return nullptr;
    }

    Change change(const SavedItem &def) const
    {
        Change c;
        c.phy_id = dev_.phy_id;
        c.logic_id = dev_.logic_id;
        c.item = def.key;
        const ItemView &v = view(def.key);
        c.old_saved = v.list ? joined(v.saved_entries) : v.saved;
        c.old_live = v.list ? joined(v.live_entries) : v.live;
        return c;
    }

    std::vector<std::string> command(std::vector<std::string> words) const
    {
        words.insert(words.begin(), {"-i", std::to_string(dev_.phy_id)});
        return words;
    }

    // A value, or a pair of values set by one command (address and netmask, the traffic
    // classes' bandwidths and modes, the gratuitous ARP period and switch).
    bool plan_value(const SavedItem &def, const DesiredItem &item, std::string *error)
    {
        std::map<std::string, std::string> values{{def.key, item.value}};
        const ItemView &v = view(def.key);
        bool differs = !same(def, v.saved, item.value) || !same(def, v.live, item.value);
        if (std::string_view(def.key) == "gateway")
            differs = differs || v.holder != dev_.phy_id;
        Change c = change(def);
        c.wanted = item.value;
        if (def.partner != nullptr) {
            const SavedItem &pdef = *saved_item(def.partner);
            const ItemView &pv = view(def.partner);
            const DesiredItem *p = wanted(def.partner);
            // The partner's saved value is kept when it is not given: the pair is saved and
            // replayed together.
            const std::optional<std::string> pvalue =
                p != nullptr && !p->remove ? std::optional(p->value) : pv.saved;
            if (!pvalue) {
                *error = "dev " + std::to_string(dev_.phy_id) + " " + def.key + ": give " +
                         def.partner + " too (none is saved)";
                return false;
            }
            differs = differs || !same(pdef, pv.saved, *pvalue) || !same(pdef, pv.live, *pvalue);
            values[def.partner] = *pvalue;
            c.item = std::string(def.key) + "+" + def.partner;
            c.old_saved = v.saved.value_or("none") + " " + pv.saved.value_or("none");
            c.old_live = v.live.value_or("none") + " " + pv.live.value_or("none");
            c.wanted = item.value + " " + *pvalue;
        }
        if (!differs)
            return true;
        c.commands.push_back(command(expand(def.set_words, values)));
        out_->push_back(std::move(c));
        return true;
    }

    // The DSCP map: one command per entry that differs. Saved entries that are not wanted go
    // with the whole saved line first (the device keeps their classes until a reset).
    void plan_dscp(const SavedItem &def, const DesiredItem &item)
    {
        const ItemView &v = view(def.key);
        std::map<std::string, std::string> want, saved, live;
        auto read = [](const std::optional<std::string> &text,
                       std::map<std::string, std::string> *m) {
            size_t start = 0;
            const std::string t = text.value_or("");
            while (start < t.size()) {
                size_t end = t.find(',', start);
                if (end == std::string::npos)
                    end = t.size();
                const std::string e = t.substr(start, end - start);
                const size_t colon = e.find(':');
                if (colon != std::string::npos)
                    (*m)[item_canonical_number(e.substr(0, colon)).value_or(e.substr(0, colon))] =
                        item_canonical_number(e.substr(colon + 1)).value_or(e.substr(colon + 1));
                start = end + 1;
            }
        };
        read(item.value, &want);
        read(v.saved, &saved);
        read(v.live, &live);
        Change c = change(def);
        c.wanted = item.value;
        // The device's classes at the DSCP values wanted (it holds all 64).
        std::string shown_live;
        for (const auto &[dscp, tc] : want) {
            (void)tc;
            if (const auto l = live.find(dscp); l != live.end())
                shown_live += (shown_live.empty() ? "" : ",") + dscp + ":" + l->second;
        }
        if (v.live)
            c.old_live = shown_live;
        const bool extra = std::any_of(saved.begin(), saved.end(),
                                       [&](const auto &e) { return want.count(e.first) == 0; });
        if (extra) {
            c.saved_keys.push_back(v.key);
            saved.clear();
        }
        for (const auto &[dscp, tc] : want) {
            const auto s = saved.find(dscp), l = live.find(dscp);
            if (s != saved.end() && s->second == tc && l != live.end() && l->second == tc)
                continue;
            c.commands.push_back(command(expand(def.set_words, {{"dscp", dscp}, {"tc", tc}})));
        }
        if (!c.commands.empty() || !c.saved_keys.empty())
            out_->push_back(std::move(c));
    }

    // Static routes: the routes not wanted go first (a full table makes room), then the
    // missing ones are added. The tool deletes a route only when it is both saved and on the
    // device, and adds a saved route again only with its saved gateway: a missing half is put
    // back first.
    void plan_routes(const SavedItem &def, const DesiredItem &item)
    {
        const ItemView &v = view(def.key);
        std::map<std::string, std::string> want;
        for (const std::string &e : item.entries) {
            const auto r = route_of(e);
            want[r ? r->id : e] = r ? r->gateway : "";
        }
        std::map<std::string, std::string> saved = routes_of(v.saved_entries);
        std::map<std::string, std::string> live = routes_of(v.live_entries);
        Change c = change(def);
        c.wanted = join(item.entries, ", ");
        auto add = [&](const std::string &id, const std::string &gw) {
            std::vector<std::string> words = {"-route", "-a"};
            for (std::string &w : split(id + " gateway " + gw))
                words.push_back(std::move(w));
            c.commands.push_back(command(words));
            saved[id] = live[id] = gw;
        };
        auto remove = [&](const std::string &id) {
            const auto s = saved.find(id), l = live.find(id);
            if (s == saved.end() && l == live.end())
                return;
            if (s == saved.end())
                add(id, l->second);
            else if (l == live.end())
                add(id, s->second);
            std::vector<std::string> words = {"-route", "-d"};
            for (std::string &w : split(id))
                words.push_back(std::move(w));
            c.commands.push_back(command(words));
            saved.erase(id);
            live.erase(id);
        };
        for (const auto &[id, gw] : std::map(saved)) {
            const auto w = want.find(id);
            if (w == want.end() || w->second != gw)
                remove(id);
        }
        for (const auto &[id, gw] : want) {
            const auto s = saved.find(id), l = live.find(id);
            if (s == saved.end() || l == live.end() || s->second != gw || l->second != gw)
                add(id, gw);
        }
        if (!c.commands.empty())
            out_->push_back(std::move(c));
    }

    // null: the saved line goes (with its partner's). A list's entries are deleted from the
    // device as well; a value stays on the device until a reset, which no command undoes.
    void plan_removal(const SavedItem &def)
    {
        const ItemView &v = view(def.key);
        if (def.kind == ItemKind::kEntries) {
            plan_routes(def, DesiredItem{def.key, false, "", {}});
            return;
        }
        Change c = change(def);
        if (v.saved || !v.saved_error.empty())
            c.saved_keys.push_back(v.key);
        if (def.partner != nullptr) {
            const ItemView &pv = view(def.partner);
            if (pv.saved || !pv.saved_error.empty())
                c.saved_keys.push_back(pv.key);
            c.item = std::string(def.key) + "+" + def.partner;
        }
        if (c.saved_keys.empty())
            return;
        c.op = ChangeOp::kUnsave;
        out_->push_back(std::move(c));
    }

    const DeviceView &dev_;
    const DesiredDevice &want_;
    std::vector<Change> *out_;
};

} // namespace

bool ctl_plan(const HostView &host, const std::vector<DesiredDevice> &desired,
              std::vector<Change> *changes, std::string *error)
{
    for (const DesiredDevice &want : desired) {
        const auto dev = std::find_if(host.devices.begin(), host.devices.end(),
                                      [&](const DeviceView &d) { return d.phy_id == want.phy_id; });
        if (dev == host.devices.end()) {
            *error = "no device has the physical id " + std::to_string(want.phy_id);
            return false;
        }
        if (!dev->readable && !want.items.empty()) {
            *error = "dev " + std::to_string(want.phy_id) + " cannot be set: its health is " +
                     ctl_health_word(*dev);
            return false;
        }
    }
    // Device by device in physical id order, each in replay order.
    std::vector<const DesiredDevice *> order;
    for (const DesiredDevice &want : desired)
        order.push_back(&want);
    std::sort(order.begin(), order.end(),
              [](const DesiredDevice *a, const DesiredDevice *b) { return a->phy_id < b->phy_id; });
    for (const DesiredDevice *want : order) {
        const DeviceView &dev =
            *std::find_if(host.devices.begin(), host.devices.end(),
                          [&](const DeviceView &d) { return d.phy_id == want->phy_id; });
        if (!Planner(dev, *want, changes).plan(error))
            return false;
    }
    return true;
}
