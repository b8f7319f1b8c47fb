// Product data: for each board hardware type, the firmware images that packages carry for it but
// that are neither indexed nor checked against the signed file list on that board. These are
// images the board's own loaders program into devices (FPGAs, CPLDs, network processors, PHYs)
// and prove with the device's own mechanism; the names are binNames, as the package records
// and the file lists name them. docs/packages.md lists the table.
#include <cstddef>
#include <cstdint>

#include "bootinit/package.h"

namespace {

// Main processing units.
constexpr const char *kMpuA[] = {"mpu_cpld.bin", "mpu_fpga.bin", "mpu_epld.bin"};
constexpr const char *kMpuB[] = {"mpu_cpld.bin", "mpu_fpga.bin", "mpu_bios_ext.bin"};
constexpr const char *kMpuC[] = {"mpuc_cpld.bin", "mpuc_fpga.bin"};
// Line cards.
constexpr const char *kLcA[] = {"lc_fpga.bin", "lc_cpld.bin", "np_ucode.bin", "phy_fw.bin"};
constexpr const char *kLcB[] = {"lc_fpga.bin", "lc_cpld.bin", "np_ucode.bin"};
constexpr const char *kLcC[] = {"lc100g_fpga.bin", "lc_cpld.bin", "retimer_fw.bin"};
constexpr const char *kLcD[] = {"lc400g_fpga.bin", "lc_cpld.bin", "retimer_fw.bin", "np_ucode.bin"};
constexpr const char *kLcE[] = {"lcpoe_cpld.bin", "poe_mcu.bin"};
// Switch fabric units.
constexpr const char *kSfuA[] = {"sfu_fpga.bin", "sfu_cpld.bin"};
constexpr const char *kSfuB[] = {"sfu_fpga.bin", "sfu_cpld.bin", "xbar_ucode.bin"};
// Service cards and chassis parts.
constexpr const char *kSvcA[] = {"svc_fpga.bin", "crypto_ucode.bin"};
constexpr const char *kSvcB[] = {"svc_fpga.bin", "dpi_ucode.bin"};
constexpr const char *kCmu[] = {"cmu_cpld.bin", "fan_mcu.bin"};
constexpr const char *kPsu[] = {"psu_mcu.bin"};
constexpr const char *kClk[] = {"clk_cpld.bin", "dpll_cfg.bin"};

template <std::size_t N>
constexpr BOOT_PKG_WHITELIST_ROW_S Row(uint32_t hardType, const char *const (&names)[N]) noexcept {
  return {hardType, static_cast<uint32_t>(N), names};
}

}  // namespace

const BOOT_PKG_WHITELIST_ROW_S g_whiteList[BOOT_PKG_WHITELIST_ROWS] = {
    Row(0x1A2B, kMpuA), Row(0x1A2C, kMpuB), Row(0x1A3D, kMpuC), Row(0x2B3C, kLcA),
    Row(0x2B3D, kLcB),  Row(0x2B4E, kLcC),  Row(0x2B4F, kLcD),  Row(0x2B5A, kLcE),
    Row(0x3C4D, kSfuA), Row(0x3C4E, kSfuB), Row(0x4D5E, kSvcA), Row(0x4D5F, kSvcB),
    Row(0x5E6F, kCmu),  Row(0x5E70, kPsu),  Row(0x5E71, kClk),
};
