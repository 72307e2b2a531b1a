#pragma once

// Section and value names of the settings store, shared by every component of the product.
namespace SettingsKeys {

// Sections (relative to the store root).
inline constexpr char kSettingsSection[] = "Settings\\";
inline constexpr char kUpdaterSection[] = "Settings\\Updater";
inline constexpr char kLoggerSection[] = "Logger";
inline constexpr char kLoggerSectionPath[] = "Logger\\";
inline constexpr char kControllerSection[] = "Settings\\Controller\\";
inline constexpr char kGuiSection[] = "Settings\\Gui\\";
inline constexpr char kCatalogSection[] = "Settings\\Catalog\\";
inline constexpr char kRulesEngineSection[] = "Settings\\RulesEngine\\";
inline constexpr char kGuiQnvBranch[] = "GUI\\QNV\\";
inline constexpr char kGuiRmvBranch[] = "GUI\\RMV\\";
// The update runs' records, a key that only administrators and SYSTEM may write.
inline constexpr char kRecordsKey[] = "Records";

// "Settings\Updater"
inline constexpr char kPrinterPollInterval[] = "PrinterPollInterval";
inline constexpr char kDoNotDeleteDownloadedFiles[] = "DoNotDeleteDownloadedFiles";
inline constexpr char kWebServerUrl[] = "WebServerUrl";
inline constexpr char kTandemOrreryDownloadPackageCode[] = "TandemOrreryDownloadPackageCode";
inline constexpr char kTandemCatalogDownloadPackageCode[] = "TandemCatalogDownloadPackageCode";
inline constexpr char kTandemOrreryVersionPackageCode[] = "TandemOrreryVersionPackageCode";
inline constexpr char kTandemCatalogVersionPackageCode[] = "TandemCatalogVersionPackageCode";
inline constexpr char kWebUpdaterDllPath[] = "WebUpdaterDllPath";
inline constexpr char kCheckForUpdateTimeOut[] = "CheckForUpdateTimeOut";
inline constexpr char kCheckForUpdateRetryCount[] = "CheckForUpdateRetryCount";
inline constexpr char kDownloadUpdateTimeOut[] = "DownloadUpdateTimeOut";
inline constexpr char kDownloadUpdateRetryCount[] = "DownloadUpdateRetryCount";
inline constexpr char kDataUpdatesDirectoryName[] = "DataUpdatesDirectoryName";
inline constexpr char kDataUpdated[] = "DataUpdated";
inline constexpr char kCompleteSoftwareUpdated[] = "CompleteSoftwareUpdated";
// Also settable by fleet policy (config/policies.json, settings/Policy), as are
// "WebServerUrl", "PrinterPollInterval" and the log's "startLog".
inline constexpr char kUpdateMode[] = "UpdateMode";  // 0 off, 1 automatic, 2 check and report
inline constexpr char kReportRunEvents[] = "ReportRunEvents";
inline constexpr char kTrustedPublishers[] = "TrustedPublishers";  // REG_MULTI_SZ
inline constexpr char kApplyWindowStart[] = "ApplyWindowStart";
inline constexpr char kApplyWindowDuration[] = "ApplyWindowDuration";
inline constexpr char kApplyWindowDays[] = "ApplyWindowDays";
inline constexpr char kApplyWindowReserve[] = "ApplyWindowReserve";
inline constexpr char kCheckPeriodMinutes[] = "CheckPeriodMinutes";
inline constexpr char kQuietWaitMode[] = "QuietWaitMode";

// "Settings\"
inline constexpr char kOrreryVersionInfoFileName[] = "OrreryVersionInfoFileName";
inline constexpr char kCatalogVersionInfoFileName[] = "CatalogVersionInfoFileName";
inline constexpr char kDllPath[] = "DllPath";
inline constexpr char kDataPath[] = "DataPath";
inline constexpr char kDriverName[] = "DriverName";
inline constexpr char kDeleteStoreOnUninstall[] = "DeleteStoreOnUninstall";

// Printers.
inline constexpr char kSerialNumber[] = "SerialNumber";
inline constexpr char kRetailerId[] = "RetailerID";
inline constexpr char kOriginalFriendlyName[] = "OriginalFriendlyName";

// "Logger": the log writer's switches, named in logging/LogSwitches.h.
inline constexpr char kEnabled[] = "enabled";

}  // namespace SettingsKeys
