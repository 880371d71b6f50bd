// Device identity and health: health check, PCIe-card test and the device list.
#include "device/device_info.hpp"

#include "base/result.hpp"
#include "log/driver_log.hpp"

int32_t tool_check_dev_health(uint32_t logic_id)
{
    unsigned int health = 0;
    int ret = kopa_get_device_health(logic_id, &health);
    if (ret != 0) {
        DRV_ERR("kopa_get_device_health fail. (ret=%d; logic_id=%u)", ret, logic_id);
        return kErrKopaHealth;
    }
    if (health == KOPA_HEALTH_GONE) {
        DRV_ERR("device is not exist. (logic_id=%u)", logic_id);
        return kErrKopaGone;
    }
    if (health != KOPA_HEALTH_OK && health != KOPA_HEALTH_MINOR) {
        DRV_ERR("device health is abnormal. (logic_id=%u; health=%u)", logic_id, health);
        return kErrKopaHealth;
    }
    return kOk;
}

int32_t tool_is_pcie_card(uint32_t logic_id, bool *is_pcie)
{
    if (is_pcie == nullptr)
        return kErrSysNull;
    unsigned int board_id = 0;
    int ret = kopa_get_board_id(logic_id, &board_id);
    if (ret != 0) {
        DRV_ERR("kopa_get_board_id fail. (ret=%d; logic_id=%u)", ret, logic_id);
        return kopa_err_to_vorn_err(ret);
    }
    *is_pcie = board_id >= KOPA_BOARD_PCIE_MIN && board_id <= KOPA_BOARD_PCIE_MAX;
    return kOk;
}

int32_t tool_get_dev_list_info(dev_list_info *list)
{
    if (list == nullptr)
        return kErrSysNull;
    *list = dev_list_info{};
    int count = 0;
    int ret = kopa_get_device_count(&count);
    if (ret != 0 || count < 0 || count > KOPA_MAX_DEVICES) {
        DRV_ERR("kopa_get_device_count fail. (ret=%d; count=%d)", ret, count);
        return kopa_err_to_vorn_err(ret);
    }
    int ids[KOPA_MAX_DEVICES] = {};
    if (count > 0) {
        ret = kopa_list_device(ids, count);
        if (ret != 0) {
            DRV_ERR("kopa_list_device fail. (ret=%d; count=%d)", ret, count);
            return kopa_err_to_vorn_err(ret);
        }
    }
    for (int i = 0; i < count; ++i) {
        unsigned int phy = 0;
        ret = kopa_get_phyid_from_logicid(static_cast<unsigned int>(ids[i]), &phy);
        if (ret != 0) {
            DRV_ERR("kopa_get_phyid_from_logicid fail. (ret=%d; logic_id=%d)", ret, ids[i]);
            return kopa_err_to_vorn_err(ret);
        }
        list->logic_id[i] = static_cast<uint32_t>(ids[i]);
        list->phy_id[i] = phy;
    }
    list->count = static_cast<uint32_t>(count);
    return kOk;
}
