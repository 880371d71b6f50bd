// vornctl apply FILE: the desired settings of the host's devices applied as one transaction.
// The host is read once under the setting lock; each change runs in this process as the tool's
// own command line (its checks, hazards, saves and run-log lines). The saves of every change go
// to one transaction of the configuration file, which reaches the file in one atomic rewrite at
// the end: a killed run leaves it old or new. When a change fails, the transaction is dropped
// (the file stays as it was) and every device set back.
#include "vornctl/apply.hpp"

#include <arpa/inet.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <set>

#include "base/result.hpp"
#include "cmdline/identity.hpp"
#include "cmdline/setting_lock.hpp"
#include "commands/saved_item.hpp"
#include "config/store.hpp"
#include "device/ops.hpp"
#include "log/run_log.hpp"
#include "main/dispatch.hpp"
#include "main/errors.hpp"
#include "vornctl/vornctl.hpp"

namespace
{

using nlohmann::json;

constexpr size_t kDocMax = 4 << 20; ///< the largest document read
constexpr uint32_t kNetPort = 0;

bool read_text(const std::string &path, std::string *text, std::string *error)
{
    FILE *f = path == "-" ? stdin : fopen(path.c_str(), "re");
    if (f == nullptr) {
        *error = std::string("cannot open it: ") + strerror(errno);
        return false;
    }
    char buf[65536];
    size_t n = 0;
    while ((n = fread(buf, 1, sizeof(buf), f)) > 0 && text->size() <= kDocMax)
        text->append(buf, n);
    const bool failed = ferror(f) != 0;
    if (f != stdin)
        (void)fclose(f);
    if (failed || text->size() > kDocMax) {
        *error = failed ? "cannot read it" : "it is larger than 4 MiB";
        return false;
    }
    return true;
}

std::string command_text(const std::vector<std::string> &words)
{
    std::string out = "vorn_tool";
    for (const std::string &w : words)
        out += " " + w;
    return out;
}

/// Runs one command line of the tool in this process, as the tool's entry point runs it.
int32_t run_command(const std::vector<std::string> &words)
{
    std::vector<std::string> store = {"vorn_tool"};
    store.insert(store.end(), words.begin(), words.end());
    std::vector<char *> argv;
    for (std::string &w : store)
        argv.push_back(w.data());
    argv.push_back(nullptr);
    cmd_parse_info info{};
    const int argc = static_cast<int>(store.size());
    return finish_cmd_line(parse_cmd(argc, argv.data(), &info), &info);
}

/// Removes the saved lines of `keys` in one change of the file.
int32_t unsave(const std::vector<std::string> &keys)
{
    ConfSession conf(ConfAccess::kDelete);
    const int ret = conf.open();
    if (ret != 0)
        return ret;
    for (const std::string &key : keys) {
        RUN_LOG_CONFIG("remove the saved line of %s (vornctl apply)\n", key.c_str());
        (void)conf.remove(key.c_str());
    }
    return conf.commit();
}

/// Runs a change; 0, or the first failing command's result.
int32_t make(const Change &c)
{
    if (c.op == ChangeOp::kUnsave)
        return unsave(c.saved_keys);
    if (!c.saved_keys.empty()) {
        if (const int32_t ret = unsave(c.saved_keys); ret != kOk)
            return ret;
    }
    for (const auto &words : c.commands) {
        if (const int32_t ret = run_command(words); ret != kOk)
            return ret;
    }
    return kOk;
}

// ---- Undo ------------------------------------------------------------------------------------

bool same_text(const SavedItem &def, const std::optional<std::string> &a,
               const std::optional<std::string> &b)
{
    if (!a || !b)
        return a == b;
    const auto ca = def.canonical != nullptr ? def.canonical(*a) : std::nullopt;
    const auto cb = def.canonical != nullptr ? def.canonical(*b) : std::nullopt;
    return ca && cb ? *ca == *cb : *a == *b;
}

uint32_t ipv4_of(const std::string &text)
{
    return inet_addr(text.c_str());
}

bool route_record(const std::string &entry, kopa_route_record *r)
{
    char a[32], m[32], g[32];
    if (sscanf(entry.c_str(), "address %31s netmask %31s gateway %31s", a, m, g) != 3)
        return false;
    *r = {ipv4_of(a), ipv4_of(m), ipv4_of(g)};
    return true;
}

/// Sets the routes of a device back: the ones added deleted, the ones deleted added.
bool undo_routes(const DeviceView &dev, const ItemView &was, const ItemView &now)
{
    if (!was.live_entries || !now.live_entries)
        return !was.live_entries;
    const std::set<std::string> before(was.live_entries->begin(), was.live_entries->end());
    const std::set<std::string> after(now.live_entries->begin(), now.live_entries->end());
    bool ok = true;
    kopa_route_record r{};
    for (const std::string &e : after) {
        if (before.count(e) == 0 && route_record(e, &r))
            ok = kopa_del_route_table(dev.logic_id, kNetPort, &r) == 0 && ok;
    }
    for (const std::string &e : before) {
        if (after.count(e) == 0 && route_record(e, &r))
            ok = kopa_add_route_table(dev.logic_id, kNetPort, &r) == 0 && ok;
    }
    return ok;
}

/// Whether `c` sets item `key` ("address+netmask" sets both).
bool change_sets(const Change &c, std::string_view key)
{
    std::string_view items = c.item;
    while (true) {
        const size_t plus = items.find('+');
        if (items.substr(0, plus) == key)
            return true;
        if (plus == std::string_view::npos)
            return false;
        items.remove_prefix(plus + 1);
    }
}

/// Whether a change that was made touched device `phy_id` (any item, when `key` is empty) or
/// its item `key`.
bool was_changed(const std::vector<Change> &changes, uint32_t phy_id, std::string_view key = {})
{
    return std::any_of(changes.begin(), changes.end(), [&](const Change &c) {
        return c.outcome == Outcome::kDone && c.phy_id == phy_id &&
               (key.empty() || change_sets(c, key));
    });
}

/// Sets every value of every device that differs from what it was back to it, with the item's
/// own setting routine as recovery uses it (it saves nothing). The names of the items that
/// could not be set back go to `failed`: those whose setting failed, and those of a change made
/// that cannot be set back (its device gone or unreadable, its value before unknown).
void undo_devices(const HostView &before, const HostView &now, const std::vector<Change> &changes,
                  std::vector<std::string> *failed)
{
    for (const DeviceView &was : before.devices) {
        const auto it = std::find_if(now.devices.begin(), now.devices.end(),
                                     [&](const DeviceView &d) { return d.phy_id == was.phy_id; });
        if (!was.readable)
            continue;
        if ((it == now.devices.end() || !it->readable) && was_changed(changes, was.phy_id)) {
            failed->push_back("dev " + std::to_string(was.phy_id) + " (not read back)");
            continue;
        }
        if (it == now.devices.end())
            continue;
        const DevRef dev{was.logic_id, was.phy_id};
        for (const SavedItem *def : g_saved_items) {
            const ItemView *a = ctl_find_item(was, def->key), *b = ctl_find_item(*it, def->key);
            if (a == nullptr || b == nullptr)
                continue;
            const std::string name = "dev " + std::to_string(was.phy_id) + " " + def->key;
            if (def->kind == ItemKind::kEntries) {
                if (std::string_view(def->key) == "routes" && !undo_routes(was, *a, *b))
                    failed->push_back(name);
                continue;
            }
            if (std::string_view(def->key) == "gateway") {
                // The group's gateway, undone on the device that held it.
                if (same_text(*def, a->live, b->live) && a->holder == b->holder)
                    continue;
                int32_t ret = kOk;
                // A gateway that came to this device goes from it; one that left it comes back.
                if (b->live && b->live != "none" && b->holder == was.phy_id &&
                    a->holder != was.phy_id)
                    ret =
                        kopa_del_default_gateway_address(was.logic_id, kNetPort, ipv4_of(*b->live));
                if (ret == kOk && a->live && a->live != "none" && a->holder == was.phy_id)
                    ret = def->set(dev, a->live->c_str(), SetMode::kRecovery);
                if (ret != kOk)
                    failed->push_back(name);
                continue;
            }
            const SavedItem *pdef = def->partner != nullptr ? saved_item(def->partner) : nullptr;
            const ItemView *pa = pdef != nullptr ? ctl_find_item(was, pdef->key) : nullptr;
            const ItemView *pb = pdef != nullptr ? ctl_find_item(*it, pdef->key) : nullptr;
            bool differs = !same_text(*def, a->live, b->live);
            if (pa != nullptr && pb != nullptr)
                differs = differs || !same_text(*pdef, pa->live, pb->live);
            // A pair is set back once, at its first item, with both values.
            const bool second_of_pair = pdef != nullptr && def->replay == nullptr;
            if (!differs || second_of_pair)
                continue;
            if (!a->live) {
                // Its value before the apply was not read: nothing to set back to.
                if (was_changed(changes, was.phy_id, def->key))
                    failed->push_back(name);
                continue;
            }
            int32_t ret = kOk;
            if (def->set_pair != nullptr && pa != nullptr && pa->live)
                ret = def->set_pair(dev, a->live->c_str(), pa->live->c_str(), SetMode::kRecovery);
            else if (def->set != nullptr)
                ret = def->set(dev, a->live->c_str(), SetMode::kRecovery);
            if (ret != kOk)
                failed->push_back(name);
        }
    }
}

/// Whether any value of `c` is among those that could not be set back.
bool undo_failed_for(const Change &c, const std::vector<std::string> &failed)
{
    const std::string dev = "dev " + std::to_string(c.phy_id) + " ";
    return std::any_of(failed.begin(), failed.end(), [&](const std::string &name) {
        return name.starts_with("every device") || name == dev + "(not read back)" ||
               (name.starts_with(dev) && change_sets(c, std::string_view(name).substr(dev.size())));
    });
}

// ---- Output ----------------------------------------------------------------------------------

const char *outcome_word(Outcome o, bool check)
{
    switch (o) {
    case Outcome::kPlanned:
        return check ? "would-change" : "planned";
    case Outcome::kDone:
        return "changed";
    case Outcome::kFailed:
        return "failed";
    case Outcome::kUndone:
        return "undone";
    case Outcome::kNotRun:
        return "not-run";
    }
    return "planned";
}

json opt(const std::optional<std::string> &v)
{
    return v ? json(*v) : json(nullptr);
}

std::string shown(const std::optional<std::string> &v)
{
    return v && !v->empty() ? *v : "none";
}

struct Result {
    bool check = false;
    bool failed = false;
    bool rolled_back = false;
    std::vector<std::string> undo_failed;
    std::string error;    ///< what stopped the run before any change
    bool devices = false; ///< the error is that the devices could not be listed
};

void print_text(const std::vector<Change> &changes, const Result &r)
{
    std::set<uint32_t> devices;
    for (const Change &c : changes) {
        devices.insert(c.phy_id);
        if (c.op == ChangeOp::kUnsave) {
            printf("dev %u %s: saved %s removed; the device keeps %s until a reset", c.phy_id,
                   c.item.c_str(), shown(c.old_saved).c_str(), shown(c.old_live).c_str());
        } else {
            printf("dev %u %s: saved %s, device %s -> %s", c.phy_id, c.item.c_str(),
                   shown(c.old_saved).c_str(), shown(c.old_live).c_str(), shown(c.wanted).c_str());
        }
        if (c.outcome == Outcome::kFailed)
            printf(": failed (0x%x)\n", static_cast<unsigned>(c.code));
        else if (!r.check)
            printf(": %s\n", outcome_word(c.outcome, false));
        else
            putchar('\n');
        if (r.check) {
            for (const auto &words : c.commands)
                printf("    %s\n", command_text(words).c_str());
        }
    }
    if (changes.empty()) {
        puts("apply: nothing to change");
        return;
    }
    if (r.check) {
        printf("apply: %zu change(s) to make on %zu device(s)\n", changes.size(), devices.size());
        return;
    }
    if (!r.failed) {
        printf("apply: %zu change(s) made on %zu device(s)\n", changes.size(), devices.size());
        return;
    }
    for (const std::string &name : r.undo_failed)
        printf("apply: %s could not be set back\n", name.c_str());
}

void print_json(const std::vector<Change> &changes, const Result &r)
{
    json doc;
    doc["schema"] = "vornctl-apply";
    doc["schema_version"] = 1;
    doc["check"] = r.check;
    doc["changed"] = !changes.empty() && !r.rolled_back;
    doc["failed"] = r.failed;
    doc["rolled_back"] = r.rolled_back;
    doc["error"] = r.error.empty() ? json(nullptr) : json(r.error);
    doc["not_undone"] = r.undo_failed;
    json list = json::array();
    for (const Change &c : changes) {
        json commands = json::array();
        for (const auto &words : c.commands)
            commands.push_back(command_text(words));
        json item = {{"phy_id", c.phy_id},
                     {"item", c.item},
                     {"old", {{"saved", opt(c.old_saved)}, {"live", opt(c.old_live)}}},
                     {"new", opt(c.wanted)},
                     {"removed", c.saved_keys},
                     {"commands", commands},
                     {"outcome", outcome_word(c.outcome, r.check)}};
        if (c.outcome == Outcome::kFailed)
            item["code"] = c.code;
        if (c.op == ChangeOp::kUnsave)
            item["note"] = "the device keeps its value until a reset";
        if (c.after_saved || c.after_live)
            item["after"] = {{"saved", opt(c.after_saved)}, {"live", opt(c.after_live)}};
        list.push_back(item);
    }
    doc["changes"] = list;
    puts(doc.dump(2).c_str());
}

int32_t read_host(HostView *host, std::string *error)
{
    const int32_t ret = ctl_read_host(std::nullopt, host);
    if (ret != kOk) {
        *error = "the devices cannot be listed";
        return ret;
    }
    if (host->conf_ret != 0) {
        *error = host->conf_path + " cannot be read";
        return host->conf_ret;
    }
    return kOk;
}

/// The values read back after the changes.
void read_back(const HostView &after, std::vector<Change> *changes)
{
    for (Change &c : *changes) {
        for (const DeviceView &d : after.devices) {
            if (d.phy_id != c.phy_id)
                continue;
            const std::string first = c.item.substr(0, c.item.find('+'));
            if (const ItemView *v = ctl_find_item(d, first); v != nullptr) {
                c.after_saved =
                    v->list && v->saved_entries ? std::optional(std::string()) : v->saved;
                c.after_live = v->list && v->live_entries ? std::optional(std::string()) : v->live;
                if (v->list) {
                    for (const std::string &e :
                         v->saved_entries.value_or(std::vector<std::string>{}))
                        *c.after_saved += (c.after_saved->empty() ? "" : ", ") + e;
                    for (const std::string &e :
                         v->live_entries.value_or(std::vector<std::string>{}))
                        *c.after_live += (c.after_live->empty() ? "" : ", ") + e;
                }
            }
        }
    }
}

int finish(const CtlOptions &opts, const std::vector<Change> &changes, const Result &r)
{
    if (!r.error.empty())
        fprintf(stderr, "vornctl apply: %s\n", r.error.c_str());
    if (opts.json)
        print_json(changes, r);
    else if (r.error.empty() || !changes.empty())
        print_text(changes, r);
    if (!ctl_stdout_ok())
        return kCtlExitFailure;
    if (r.devices)
        return kCtlExitDevices;
    return r.failed || !r.error.empty() ? kCtlExitFailure : kCtlExitOk;
}

/// While it lives, what the commands print goes to standard error: standard output holds the
/// JSON document alone.
class OutputToStderr
{
  public:
    explicit OutputToStderr(bool on)
    {
        if (!on)
            return;
        (void)fflush(stdout);
        saved_ = dup(STDOUT_FILENO);
        if (saved_ >= 0)
            (void)dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~OutputToStderr()
    {
        if (saved_ < 0)
            return;
        (void)fflush(stdout);
        (void)dup2(saved_, STDOUT_FILENO);
        (void)close(saved_);
    }
    OutputToStderr(const OutputToStderr &) = delete;
    OutputToStderr &operator=(const OutputToStderr &) = delete;

  private:
    int saved_ = -1;
};

} // namespace

int ctl_apply(const CtlOptions &opts)
{
    std::vector<Change> changes;
    Result r;
    r.check = opts.check;
    std::string text;
    std::vector<DesiredDevice> desired;
    if (!read_text(opts.file, &text, &r.error) || !ctl_read_desired(text, &desired, &r.error)) {
        r.error = opts.file + ": " + r.error;
        return finish(opts, changes, r);
    }
    std::optional<ConfTransaction> saves;
    if (!opts.check) {
        if (vorn_get_usr_name() != 0 || vorn_get_usr_ip() != 0) {
            r.error = "the calling user cannot be identified for the run log";
            return finish(opts, changes, r);
        }
        // Held to the exit: nothing else sets a device between the read and the read-back.
        if (take_setting_lock() != kOk) {
            r.error = "vorn_tool is busy, please try again";
            return finish(opts, changes, r);
        }
        if (saves.emplace().begin() != 0) {
            r.error = std::string(cfg_conf_path()) + " cannot be opened for writing";
            return finish(opts, changes, r);
        }
    }
    HostView before;
    if (read_host(&before, &r.error) != kOk) {
        r.devices = before.list_ret != 0;
        return finish(opts, changes, r);
    }
    if (!ctl_plan(before, desired, &changes, &r.error))
        return finish(opts, changes, r);
    if (opts.check || changes.empty())
        return finish(opts, changes, r);

    RUN_LOG_CONFIG("start to apply %zu change(s) (vornctl apply)\n", changes.size());
    size_t failed_at = changes.size();
    {
        OutputToStderr quiet(opts.json);
        for (size_t i = 0; i < changes.size(); ++i) {
            const int32_t ret = make(changes[i]);
            changes[i].outcome = ret == kOk ? Outcome::kDone : Outcome::kFailed;
            changes[i].code = ret;
            if (ret != kOk) {
                failed_at = i;
                break;
            }
        }
    }
    std::string failure;
    if (failed_at < changes.size()) {
        const Change &bad = changes[failed_at];
        char what[160];
        snprintf(what, sizeof(what), "dev %u %s failed (0x%x)", bad.phy_id, bad.item.c_str(),
                 static_cast<unsigned>(bad.code));
        failure = what;
        for (size_t i = failed_at + 1; i < changes.size(); ++i)
            changes[i].outcome = Outcome::kNotRun;
    }
    if (failure.empty() || opts.no_rollback) {
        if (saves->commit() != 0) {
            // Nothing saved: the devices go back to the file as it is.
            failure = std::string(cfg_conf_path()) + " could not be saved";
            failed_at = changes.size();
        }
    }
    if (!failure.empty()) {
        r.failed = true;
        if (!opts.no_rollback || failed_at == changes.size()) {
            // The saves dropped, the file as it was; then the devices set back to it.
            saves.reset();
            HostView now;
            std::string why;
            if (read_host(&now, &why) == kOk)
                undo_devices(before, now, changes, &r.undo_failed);
            else
                r.undo_failed.push_back("every device (" + why + ")");
            r.rolled_back = r.undo_failed.empty();
            // A change is said undone only when every value it touched was set back.
            for (Change &c : changes) {
                if (c.outcome == Outcome::kDone && !undo_failed_for(c, r.undo_failed))
                    c.outcome = Outcome::kUndone;
            }
        }
        const char *end = r.rolled_back      ? "every change before it is undone"
                          : opts.no_rollback ? "the changes before it are kept"
                                             : "not every change could be undone";
        RUN_LOG_CONFIG("vornctl apply: %s, %s\n", failure.c_str(), end);
        r.error = failure + ": " + end;
    }
    if (!r.rolled_back) {
        saves.reset();
        HostView after;
        std::string why;
        if (read_host(&after, &why) == kOk)
            read_back(after, &changes);
    }
    return finish(opts, changes, r);
}
