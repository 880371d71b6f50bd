// The table of saved items, in the order recovery replays them (VORN_SAVED_ITEMS).
#include "commands/saved_item.hpp"

namespace
{

#define VORN_SAVED_ITEM_ROW(name) &name,
constexpr const SavedItem *kSavedItems[] = {VORN_SAVED_ITEMS(VORN_SAVED_ITEM_ROW)};
#undef VORN_SAVED_ITEM_ROW

} // namespace

const std::span<const SavedItem *const> g_saved_items = kSavedItems;

const SavedItem *saved_item(std::string_view key)
{
    for (const SavedItem *item : g_saved_items) {
        if (key == item->key)
            return item;
    }
    return nullptr;
}
