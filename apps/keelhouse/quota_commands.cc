#include "keelhouse/quota_commands.h"

#include "keelhouse/folder_settings.h"
#include "keelhouse/named_share.h"
#include "keelhouse/quota_view.h"
#include "keelhouse/reply_status.h"
#include "keelhouse/volume_root.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr const char* kQuotas = "volumeQuotas";
constexpr const char* kEnabled = "isEnabled";

std::string volumePath(const Session& session, const std::string& typed) {
  std::string path = folderPath(session, typed);
  requireVolumeRoot(path);
  return path;
}

// The quotas of a reply, where it has any.
const Dictionary& checked(const Dictionary& quotas, const std::string& volume) {
  if (const std::string* error = quotas.string("quotaError")) {
    throw errorFailure("the quotas of " + volume + " cannot be read", *error);
  }
  if (!quotas.contains(kEnabled)) {
    throw failure("the daemon's reply says nothing of the quotas of " + volume);
  }
  return quotas;
}

void print(const Session& session, const std::string& volume, const Dictionary& quotas) {
  if (session.json) {
    session.out << wire::writeJsonPretty(quotas) << '\n';
  } else {
    session.out << formatQuotas(volume, quotas);
  }
}

ExitStatus switchQuotas(const Session& session, const std::string& typedVolume, bool on) {
  const std::string volume = volumePath(session, typedVolume);
  const std::string action =
      "the quotas of " + volume + " cannot be switched " + (on ? "on" : "off");
  const Dictionary reply =
      writeFolder(session, volume, {{kQuotas, Dictionary{{kEnabled, on}}}}, action);
  const Dictionary quotas = settingsPart(reply, kQuotas);
  if (checked(quotas, volume).boolean(kEnabled) != on) {
    throw failure(action + ": they are still " + (on ? "off" : "on") +
                  ", although the daemon reported success");
  }
  print(session, volume, quotas);
  return ExitStatus::done;
}

}  // namespace

ExitStatus showQuotas(const Session& session, const std::string& typedVolume) {
  const std::string volume = volumePath(session, typedVolume);
  const Dictionary reply = readFolder(session, volume);
  requireStatus(reply, "readStatus", "the quotas of " + volume + " cannot be read");
  print(session, volume, checked(settingsPart(reply, kQuotas), volume));
  return ExitStatus::done;
}

ExitStatus switchQuotasOn(const Session& session, const std::string& volume) {
  return switchQuotas(session, volume, true);
}

ExitStatus switchQuotasOff(const Session& session, const std::string& volume) {
  return switchQuotas(session, volume, false);
}

}  // namespace paddock::keelhouse
