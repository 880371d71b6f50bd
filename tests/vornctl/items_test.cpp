// The saved items against what is written of them outside the code: the JSON schema of show
// and the options of the Ansible modules name every item of the table, and nothing else.
#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "commands/saved_item.hpp"

namespace
{

std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

/// The top-level options of an Ansible module's argument_spec.
std::set<std::string> module_options(const std::string &module)
{
    const std::string text =
        read_file(std::string(VORN_SOURCE_DIR) +
                  "/ansible/ansible_collections/vorn/fabric/plugins/modules/" + module + ".py");
    const size_t spec = text.find("argument_spec = dict(");
    std::set<std::string> options;
    if (spec == std::string::npos)
        return options;
    const std::string body = text.substr(spec, text.find("\n    )", spec) - spec);
    const std::regex option("\n        (\\w+)=dict\\(");
    for (auto it = std::sregex_iterator(body.begin(), body.end(), option);
         it != std::sregex_iterator(); ++it)
        options.insert((*it)[1]);
    return options;
}

} // namespace

TEST(SavedItemsTest, SchemaNamesEveryItemInReplayOrderWithItsShape)
{
    const auto schema = nlohmann::json::parse(read_file(VORN_SCHEMA_PATH), nullptr, false);
    ASSERT_FALSE(schema.is_discarded());
    const auto &items = schema["$defs"]["device"]["properties"]["items"];
    std::vector<std::string> required = items["required"];
    std::vector<std::string> keys;
    for (const SavedItem *item : g_saved_items) {
        keys.push_back(item->key);
        const auto property = items["properties"].find(item->key);
        ASSERT_NE(property, items["properties"].end())
            << item->key << " is missing from the schema";
        // The item's shape: a list of entries or a value, of the type of its kind.
        const std::string ref = property->value("$ref", "");
        const auto &shape = schema["$defs"][ref.substr(ref.rfind('/') + 1)]["properties"];
        EXPECT_EQ(shape["kind"]["const"], item->kind == ItemKind::kEntries ? "list" : "value")
            << item->key;
        EXPECT_EQ(shape["type"]["const"], item_kind_word(item->kind)) << item->key;
    }
    EXPECT_EQ(required, keys);
    EXPECT_EQ(items["properties"].size(), keys.size());
}

// Each item names the module option that sets it (or none); every option of the modules but
// the device and the route purge sets an item.
TEST(SavedItemsTest, AnsibleModulesSetExactlyTheItemsThatNameThem)
{
    const std::set<std::string> kNotItems = {"device", "purge"};
    std::map<std::string, std::set<std::string>> named;
    for (const SavedItem *item : g_saved_items) {
        ASSERT_EQ(item->ansible_module == nullptr, item->ansible_option == nullptr) << item->key;
        if (item->ansible_module != nullptr)
            named[item->ansible_module].insert(item->ansible_option);
    }
    for (const char *module : {"vorn_port", "vorn_qos"}) {
        std::set<std::string> options = module_options(module);
        ASSERT_FALSE(options.empty()) << module;
        for (const std::string &word : kNotItems)
            options.erase(word);
        EXPECT_EQ(options, named[module]) << module;
        named.erase(module);
    }
    EXPECT_TRUE(named.empty()) << "an item names a module that is not checked";
}
