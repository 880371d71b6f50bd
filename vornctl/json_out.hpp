// The JSON documents of vornctl (show, verify and lint --json, docs/vornctl.schema.json): one
// version for all three, values typed as their kind (numbers as numbers, lists as arrays,
// entries as objects, null for what is absent).
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "vornctl/host_view.hpp"

using CtlJson = nlohmann::ordered_json;

/// The version of the documents; a field removed, renamed or retyped raises it.
inline constexpr int kCtlSchemaVersion = 2;

/// A value or list entry of the form `kind`, given in its text form, typed: a number, an
/// address or MAC text, an array of numbers, an array of {dscp, tc}, or an entry's object of
/// its keywords (numbers as numbers).
[[nodiscard]] CtlJson ctl_typed(ItemKind kind, const std::string &text);

/// One item of a device: key, saved, live, state, errors and differences.
[[nodiscard]] CtlJson ctl_item_json(const ItemView &item);

/// The head of a document named `schema`: its name, version, the time of the run and the
/// configuration file.
[[nodiscard]] CtlJson ctl_doc_head(const char *schema, const HostView &host);

/// The saved ids without a device: [{"phy_id": 2, "logic_id": null}, ...].
[[nodiscard]] CtlJson ctl_absent_json(const HostView &host);

/// Prints `doc` on standard output, any byte that is not UTF-8 replaced.
void ctl_print_json(const CtlJson &doc);
