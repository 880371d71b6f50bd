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

/// The options of each device entry of the resource module's `config`.
std::set<std::string> device_options()
{
    const std::string text =
        read_file(std::string(VORN_SOURCE_DIR) + "/ansible/ansible_collections/vorn/fabric/plugins/"
                                                 "modules/vorn_devices.py");
    const size_t dict_at = text.find("    device = dict(");
    std::set<std::string> options;
    if (dict_at == std::string::npos)
        return options;
    const std::string body = text.substr(dict_at, text.find("\n    )", dict_at) - dict_at);
    const std::regex option("\n        (\\w+)=dict\\(");
    for (auto it = std::sregex_iterator(body.begin(), body.end(), option);
         it != std::sregex_iterator(); ++it)
        options.insert((*it)[1]);
    return options;
}

/// The items each option sets, as the resource engine maps them (OPTION_ITEMS).
std::map<std::string, std::string> engine_items()
{
    const std::string py =
        read_file(std::string(VORN_SOURCE_DIR) + "/ansible/ansible_collections/vorn/fabric/plugins/"
                                                 "module_utils/vorn_resource.py");
    std::map<std::string, std::string> items; // item -> option
    const std::regex row(R"(\('(\w+)', \(([^)]*)\)\))");
    const std::regex item(R"('(\w+)')");
    for (auto it = std::sregex_iterator(py.begin(), py.end(), row); it != std::sregex_iterator();
         ++it) {
        const std::string names = (*it)[2];
        for (auto i = std::sregex_iterator(names.begin(), names.end(), item);
             i != std::sregex_iterator(); ++i)
            items[(*i)[1]] = (*it)[1];
    }
    return items;
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

// Each item names the option of the resource module that sets it (or none); every option of a
// device entry but the device sets an item, and the engine sets it with that option.
TEST(SavedItemsTest, TheResourceModuleSetsExactlyTheItemsThatNameIt)
{
    std::set<std::string> named;
    std::map<std::string, std::string> option_of;
    for (const SavedItem *item : g_saved_items) {
        ASSERT_EQ(item->ansible_module == nullptr, item->ansible_option == nullptr) << item->key;
        if (item->ansible_module == nullptr)
            continue;
        EXPECT_STREQ(item->ansible_module, "vorn_devices") << item->key;
        named.insert(item->ansible_option);
        option_of[item->key] = item->ansible_option;
    }
    std::set<std::string> options = device_options();
    ASSERT_FALSE(options.empty());
    options.erase("device");
    EXPECT_EQ(options, named);
    EXPECT_EQ(engine_items(), option_of);
}
