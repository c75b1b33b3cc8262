#include "Omnira/presentation/SettingsModel.h"

#include <QJSValue>
#include <QJsonDocument>

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "Omnira/MonitorStore.h"
#include "Omnira/SavedFileWatcher.h"
#include "OmniraCore/bridge/BridgeSocket.h"
#include "OmniraCore/foundation/AtomicFile.h"
#include "OmniraCore/foundation/JSONText.h"
#include "OmniraCore/foundation/SettingsFile.h"
#include "OmniraCore/foundation/SettingsKeys.h"
#include "OmniraCore/history/AppLimit.h"

namespace omnira::presentation {

using nlohmann::json;
using Type = SettingSpec::Type;

namespace {

constexpr double kGigabyte = 1e9;

QString q(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// The page's section for a key, by its area's prefix; a key of a new area lands in General,
// so every key of the table can be reached.
QString sectionOf(std::string_view key) {
  if (key.starts_with("insight")) return QStringLiteral("insights");
  if (key.starts_with("bridge") || key.starts_with("metrics")) return QStringLiteral("integrations");
  if (key.starts_with("usageLimits")) return QStringLiteral("usage");
  return QStringLiteral("general");
}

QString titleOf(std::string_view key) {
  static const std::map<std::string_view, const char*> titles = {
      {"refreshSeconds", "Refresh every (seconds)"},
      {"showsSystemInLists", "Show the system in lists"},
      {"historySpan", "Live charts reach back"},
      {"historyDays", "Keep history for"},
      {"temperatureUnit", "Temperatures in"},
      {"menuBarReadout", "Status icon shows"},
      {"menuBarShowsGraph", "Status icon draws a graph"},
      {"insightNotifications", "Post notifications"},
      {"insightCPUPercent", "CPU limit (%)"},
      {"insightCPUMinutes", "CPU averaged over (minutes)"},
      {"insightMemoryGrowthGB", "Memory growth (GB)"},
      {"insightDiskBurstGB", "Disk burst (GB)"},
      {"insightNetworkBurstGB", "Network burst (GB)"},
      {"insightHotCelsius", "Hot from (°C)"},
      {"insightHotMinutes", "Hot for (minutes)"},
      {"insightAppLimits", "Per-app limits"},
      {"insightMutedApps", "Muted apps"},
      {"usageLimitsEnabled", "Show usage limits"},
      {"usageLimitsClaude", "Claude"},
      {"usageLimitsCodex", "Codex"},
      {"usageLimitsCopilot", "GitHub Copilot"},
      {"usageLimitsCursor", "Cursor"},
      {"usageLimitsGrok", "Grok"},
      {"usageLimitsOllama", "Ollama"},
      {"usageLimitsAntigravity", "Antigravity"},
      {"usageLimitsOpenCode", "OpenCode"},
      {"usageLimitsClaudeApp", "Claude desktop app's sign-in"},
      {"bridgeEnabled", "Let agents ask Omnira"},
      {"bridgeSharesSystem", "Share the computer's figures"},
      {"bridgeSharesApps", "Share apps and processes"},
      {"bridgeSharesProjects", "Share projects"},
      {"bridgeSharesHistory", "Share the history"},
      {"bridgeFolderNamesOnly", "Folder names only"},
      {"bridgeActionsEnabled", "Quit requests"},
      {"bridgeAllowedProjects", "Projects trusted for quitting"},
      {"metricsEnabled", "Serve metrics"},
      {"metricsAddress", "Listen at"},
      {"metricsToken", "Bearer token"},
      {"metricsMaxApps", "Apps with their own series"},
      {"metricsProjectPaths", "Projects by full path"},
  };
  const auto found = titles.find(key);
  return found == titles.end() ? q(key) : QString::fromUtf8(found->second);
}

QString kindOf(const SettingSpec& spec) {
  switch (spec.type) {
    case Type::boolean: return QStringLiteral("switch");
    case Type::integer: return QStringLiteral("number");
    case Type::number: return spec.clamps && spec.ranged() ? QStringLiteral("slider") : QStringLiteral("number");
    case Type::choice: return QStringLiteral("choice");
    case Type::json: break;
  }
  if (spec.key == "insightMutedApps") return QStringLiteral("mutedApps");
  if (spec.key == "insightAppLimits") return QStringLiteral("appLimits");
  if (spec.key == "bridgeAllowedProjects") return QStringLiteral("folders");
  if (spec.key == "metricsToken") return QStringLiteral("secret");
  if (spec.defaultValue.is_string()) return QStringLiteral("text");
  return QStringLiteral("json");
}

QString choiceLabel(std::string_view key, const json& choice) {
  if (choice.is_number()) {
    const auto n = choice.get<int64_t>();
    if (key == "historySpan") return QStringLiteral("%1 minutes").arg(n);
    if (key == "historyDays") return QStringLiteral("%1 days").arg(n);
    return QString::number(n);
  }
  const std::string text = choice.is_string() ? choice.get<std::string>() : jsonText(choice);
  static const std::map<std::string, const char*> labels = {
      {"celsius", "Celsius"}, {"fahrenheit", "Fahrenheit"}, {"cpu", "CPU"},
      {"memory", "Memory"},   {"pressure", "Memory pressure"}};
  const auto found = labels.find(text);
  return found == labels.end() ? q(text) : QString::fromUtf8(found->second);
}

// The value as `omnira settings set` takes it: texts bare, the rest as JSON.
std::string typed(const json& value) { return value.is_string() ? value.get<std::string>() : jsonText(value); }

QVariant variantOf(const json& value) {
  if (value.is_boolean()) return value.get<bool>();
  if (value.is_number()) return value.get<double>();
  if (value.is_string()) return q(value.get<std::string>());
  if (value.is_null()) return {};
  return QJsonDocument::fromJson(QByteArray::fromStdString(jsonText(value))).toVariant();
}

QString bytesText(double bytes) {
  return QStringLiteral("%1 GB").arg(QString::number(bytes / kGigabyte, 'g', QLocale::FloatingPointShortest));
}

}  // namespace

struct SettingsModel::Row {
  const SettingSpec* spec;
  QVariant value;
  QString text, note, refusal;
  bool isDefault = true;
};

SettingsModel::SettingsModel(MonitorStore* store, AppPaths paths, const Settings& settings, QObject* parent)
    : QAbstractListModel(parent), store_(store), paths_(std::move(paths)), settings_(settings) {
  for (const auto& spec : SettingsKeys::all()) rows_.push_back(Row{&spec, {}, {}, {}, {}, true});
  for (size_t row = 0; row < rows_.size(); ++row) refreshRow(row, true);
  bridgeWatcher_ = std::make_unique<SavedFileWatcher>(paths_.dataFile("bridge.json"),
                                                      "the bridge's state shows as it was when the window opened.");
  connect(bridgeWatcher_.get(), &SavedFileWatcher::changed, this, &SettingsModel::readBridgeState);
  readBridgeState();
}

SettingsModel::~SettingsModel() = default;

int SettingsModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QHash<int, QByteArray> SettingsModel::roleNames() const {
  return {{keyRole, "key"},         {sectionRole, "section"}, {kindRole, "kind"},
          {titleRole, "title"},     {descriptionRole, "description"}, {valueRole, "value"},
          {textRole, "text"},       {minimumRole, "minimum"}, {maximumRole, "maximum"},
          {choicesRole, "choices"}, {acceptsRole, "accepts"}, {refusalRole, "refusal"},
          {noteRole, "note"},       {isDefaultRole, "isDefault"}};
}

QVariant SettingsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid() || index.row() < 0 || static_cast<size_t>(index.row()) >= rows_.size()) return {};
  const Row& row = rows_[static_cast<size_t>(index.row())];
  const SettingSpec& spec = *row.spec;
  switch (role) {
    case Qt::DisplayRole:
    case titleRole: return titleOf(spec.key);
    case keyRole: return q(spec.key);
    case sectionRole: return sectionOf(spec.key);
    case kindRole: return kindOf(spec);
    case descriptionRole: return q(spec.description);
    case valueRole: return row.value;
    case textRole: return row.text;
    case minimumRole: return spec.minimum;
    case maximumRole: return spec.maximum;
    case choicesRole: {
      QVariantList choices;
      for (const auto& choice : spec.choices)
        choices.append(QVariantMap{{"value", variantOf(choice)}, {"label", choiceLabel(spec.key, choice)}});
      return choices;
    }
    case acceptsRole: return QString::fromStdString(spec.accepts());
    case refusalRole: return row.refusal;
    case noteRole: return row.note;
    case isDefaultRole: return row.isDefault;
    default: return {};
  }
}

QStringList SettingsModel::sections() const {
  return {QStringLiteral("general"), QStringLiteral("insights"), QStringLiteral("integrations"), QStringLiteral("usage")};
}

QString SettingsModel::settingsFile() const { return QString::fromStdString(paths_.settingsFile().string()); }

int SettingsModel::rowOf(const QString& key) const {
  const std::string wanted = key.toStdString();
  for (size_t row = 0; row < rows_.size(); ++row)
    if (rows_[row].spec->key == wanted) return static_cast<int>(row);
  return -1;
}

QVariant SettingsModel::value(const QString& key) const {
  const int row = rowOf(key);
  return row < 0 ? QVariant() : rows_[static_cast<size_t>(row)].value;
}

void SettingsModel::refreshRow(size_t row, bool clearRefusal) {
  Row& r = rows_[row];
  const SettingSpec& spec = *r.spec;
  const json current = settings_.value(spec.key);
  r.text = QString::fromStdString(typed(current));
  r.isDefault = current == spec.defaultValue;
  r.note.clear();
  if (const json* stored = settings_.stored(spec.key); stored && *stored != current) {
    r.note = QString::fromStdString(fmt::format("The file holds {}, so {} is used: {}", jsonText(*stored),
                                                typed(current), spec.refusal(*stored).value_or("")));
  }
  if (clearRefusal) r.refusal.clear();

  // The JSON keys as their editors list them.
  const QString kind = kindOf(spec);
  if (kind == QLatin1String("appLimits")) {
    QVariantList limits;
    for (const auto& limit : SettingsKeys::appLimits(settings_)) {
      const bool cpu = limit.figure == AppLimit::Figure::cpu;
      limits.append(QVariantMap{
          {"appID", q(limit.appID)},
          {"appName", q(limit.appName)},
          {"figure", q(rawValue(limit.figure))},
          {"limitText", cpu ? QStringLiteral("%1 % CPU").arg(QString::number(limit.limit, 'g', QLocale::FloatingPointShortest))
                            : bytesText(limit.limit) + QStringLiteral(" memory")},
          {"minutes", limit.minutes},
          {"isOn", limit.isOn}});
    }
    r.value = limits;
  } else if (kind == QLatin1String("mutedApps")) {
    QVariantList muted;
    for (const auto& [app, until] : SettingsKeys::mutedApps(settings_)) {
      muted.append(QVariantMap{
          {"app", q(app)},
          {"until", until ? QString::fromStdString("until " + formatLocal(*until, "%Y-%m-%d %H:%M"))
                          : QStringLiteral("for good")}});
    }
    r.value = muted;
  } else {
    r.value = variantOf(current);
  }
}

void SettingsModel::applySettings(const Settings& settings) {
  settings_ = settings;
  for (size_t row = 0; row < rows_.size(); ++row) {
    const QVariant before = rows_[row].value;
    const QString note = rows_[row].note;
    refreshRow(row, false);
    // A change from elsewhere ends what was refused here: the row shows the file again.
    if (rows_[row].value != before || rows_[row].note != note) {
      rows_[row].refusal.clear();
      const QModelIndex at = index(static_cast<int>(row));
      emit dataChanged(at, at);
    }
  }
  readBridgeState();
}

QString SettingsModel::refuse(size_t row, QString sentence) {
  rows_[row].refusal = sentence;
  const QModelIndex at = index(static_cast<int>(row));
  emit dataChanged(at, at, {refusalRole});
  return sentence;
}

QString SettingsModel::setText(const QString& key, const QString& text) {
  const int row = rowOf(key);
  const SettingsFile file(paths_.settingsFile());
  auto written = file.set(key.toStdString(), text.trimmed().toStdString());
  if (row < 0) return QString::fromStdString(written ? std::string() : written.error().message);
  if (!written) return refuse(static_cast<size_t>(row), QString::fromStdString(written.error().message));
  // What is on disk now, at once; the watcher's signal that follows changes nothing more.
  rows_[static_cast<size_t>(row)].refusal.clear();
  applySettings(Settings::load(paths_.settingsFile()));
  const QModelIndex at = index(row);
  emit dataChanged(at, at);
  return {};
}

QString SettingsModel::set(const QString& key, const QVariant& given) {
  QVariant value = given;
  if (value.canConvert<QJSValue>() && value.metaType() == QMetaType::fromType<QJSValue>())
    value = value.value<QJSValue>().toVariant();
  QString text;
  switch (value.metaType().id()) {
    case QMetaType::Bool: text = value.toBool() ? QStringLiteral("true") : QStringLiteral("false"); break;
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong: text = QString::number(value.toLongLong()); break;
    case QMetaType::Double:
    case QMetaType::Float: {
      const double number = value.toDouble();
      // Whole numbers as a person writes them, so the file keeps 50, not 50.0.
      text = std::trunc(number) == number && std::abs(number) < 1e15 ? QString::number(static_cast<qint64>(number))
                                                                      : QString::number(number, 'g', QLocale::FloatingPointShortest);
      break;
    }
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
    case QMetaType::QStringList:
      text = QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
      break;
    default: text = value.toString(); break;
  }
  return setText(key, text);
}

QString SettingsModel::reset(const QString& key) {
  const int row = rowOf(key);
  auto removed = SettingsFile(paths_.settingsFile()).unset(key.toStdString());
  if (!removed) {
    const QString sentence = QString::fromStdString(removed.error().message);
    return row < 0 ? sentence : refuse(static_cast<size_t>(row), sentence);
  }
  if (row >= 0) rows_[static_cast<size_t>(row)].refusal.clear();
  applySettings(Settings::load(paths_.settingsFile()));
  if (row >= 0) emit dataChanged(index(row), index(row));
  return {};
}

QString SettingsModel::muteApp(const QString& app, int days) {
  const QString id = app.trimmed();
  const QString key = QStringLiteral("insightMutedApps");
  if (id.isEmpty()) return refuse(static_cast<size_t>(rowOf(key)), tr("Choose an app to mute."));
  json muted = settings_.json(SettingsKeys::insightMutedApps);
  if (!muted.is_object()) muted = json::object();
  muted[id.toStdString()] =
      days > 0 ? json(formatISO8601(std::chrono::system_clock::now() + std::chrono::hours(24) * days)) : json();
  return setText(key, QString::fromStdString(jsonText(muted)));
}

QString SettingsModel::unmuteApp(const QString& app) {
  json muted = settings_.json(SettingsKeys::insightMutedApps);
  if (!muted.is_object()) muted = json::object();
  muted.erase(app.toStdString());
  return setText(QStringLiteral("insightMutedApps"), QString::fromStdString(jsonText(muted)));
}

QString SettingsModel::addAppLimit(const QString& app, const QString& figure, double limit, double minutes) {
  const QString key = QStringLiteral("insightAppLimits");
  const auto row = static_cast<size_t>(rowOf(key));
  const std::string wanted = app.trimmed().toStdString();
  if (wanted.empty()) return refuse(row, tr("Choose an app for the limit."));
  const auto parsedFigure = appLimitFigureFromRaw(figure.toStdString());
  if (!parsedFigure) return refuse(row, tr("A limit is on memory or CPU."));
  if (!std::isfinite(limit) || limit <= 0 || !std::isfinite(minutes) || minutes <= 0)
    return refuse(row, tr("A limit needs a figure above zero and a number of minutes above zero."));
  AppLimit made;
  made.id = UUID::random();
  made.figure = *parsedFigure;
  made.limit = made.figure == AppLimit::Figure::memory ? limit * kGigabyte : limit;
  made.minutes = minutes;
  // An app the store sees, by its id or its name; else a name the grouping may give it later.
  made.appID = wanted.starts_with('/') || wanted.find(':') != std::string::npos ? wanted : "name:" + wanted;
  made.appName = wanted;
  if (store_) {
    for (const auto& group : store_->groups()) {
      if (group.id == wanted || group.name == wanted) {
        made.appID = group.id;
        made.appName = group.name;
        made.bundlePath = group.bundlePath;
        break;
      }
    }
  }
  json limits = settings_.json(SettingsKeys::insightAppLimits);
  if (!limits.is_array()) limits = json::array();
  limits.push_back(json(made.toJSON()));
  return setText(key, QString::fromStdString(jsonText(limits)));
}

QString SettingsModel::setAppLimitOn(int index, bool on) {
  json limits = settings_.json(SettingsKeys::insightAppLimits);
  if (!limits.is_array() || index < 0 || static_cast<size_t>(index) >= limits.size()) return {};
  limits[static_cast<size_t>(index)]["isOn"] = on;
  return setText(QStringLiteral("insightAppLimits"), QString::fromStdString(jsonText(limits)));
}

QString SettingsModel::removeAppLimit(int index) {
  json limits = settings_.json(SettingsKeys::insightAppLimits);
  if (!limits.is_array() || index < 0 || static_cast<size_t>(index) >= limits.size()) return {};
  limits.erase(static_cast<size_t>(index));
  return setText(QStringLiteral("insightAppLimits"), QString::fromStdString(jsonText(limits)));
}

QString SettingsModel::addFolder(const QString& key, const QString& folder) {
  const int row = rowOf(key);
  if (row < 0) return QString::fromStdString(SettingsKeys::unknownKeySentence(key.toStdString()));
  json folders = settings_.value(key.toStdString());
  if (!folders.is_array()) folders = json::array();
  const std::string path = folder.trimmed().toStdString();
  if (std::find(folders.begin(), folders.end(), json(path)) != folders.end()) return {};
  folders.push_back(path);
  return setText(key, QString::fromStdString(jsonText(folders)));
}

QString SettingsModel::removeFolder(const QString& key, int index) {
  json folders = settings_.value(key.toStdString());
  if (!folders.is_array() || index < 0 || static_cast<size_t>(index) >= folders.size()) return {};
  folders.erase(static_cast<size_t>(index));
  return setText(key, QString::fromStdString(jsonText(folders)));
}

QVariantList SettingsModel::runningApps() const {
  QVariantList apps;
  if (!store_) return apps;
  std::vector<const AppGroup*> groups;
  for (const auto& group : store_->groups()) groups.push_back(&group);
  std::sort(groups.begin(), groups.end(), [](const AppGroup* a, const AppGroup* b) { return a->name < b->name; });
  for (const AppGroup* group : groups) apps.append(QVariantMap{{"id", q(group->id)}, {"name", q(group->name)}});
  return apps;
}

void SettingsModel::readBridgeState() {
  const bool enabled = settings_.boolean(SettingsKeys::bridgeEnabled);
  json state;
  if (auto text = AtomicFile::read(paths_.dataFile("bridge.json"))) state = json::parse(*text, nullptr, false);
  // A file left by an earlier run says nothing about this one.
  if (!state.is_object() || !state["pid"].is_number_integer() || state["pid"].get<int64_t>() != ::getpid())
    state = json::object();
  const bool listening = state.value("listening", false);
  std::string socket = state["socket"].is_string() ? state["socket"].get<std::string>()
                                                   : BridgeSocket::path(paths_).string();
  std::string status;
  if (state["failure"].is_string()) {
    status = "Could not start: " + state["failure"].get<std::string>();
  } else if (listening) {
    status = "Listening at " + socket;
    if (state["lastAsked"].is_string()) {
      if (const auto asked = parseISO8601(state["lastAsked"].get<std::string>()))
        status += "; last asked " + formatLocal(*asked, "%Y-%m-%d %H:%M:%S");
    } else {
      status += "; not asked yet";
    }
    status += ".";
  } else {
    status = enabled ? "Starting." : "Not listening: coding agents cannot ask Omnira.";
  }
  const QString statusText = QString::fromStdString(status), socketText = QString::fromStdString(socket);
  if (statusText == bridgeStatus_ && socketText == bridgeSocket_ && listening == bridgeListening_) return;
  bridgeStatus_ = statusText;
  bridgeSocket_ = socketText;
  bridgeListening_ = listening;
  emit bridgeChanged();
}

}  // namespace omnira::presentation
