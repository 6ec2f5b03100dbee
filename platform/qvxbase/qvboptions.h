// Every option that the libraries read. This is the one place where they are declared: code reads an option by its
// declaration here, and the documented table is made from the same ones (`qvrepos generate options`).
#pragma once

#include <limits>

// An option whose value is a text. How it is found is told in qvbconfig.h; the ones below are of the kinds that are read
// as something else.
struct QvbOption {
  const char* key;
  const char* meaning;
  const char* standard; // what holds while the option is unset; empty for nothing
};

// A whole number in a range. Its standard value is one.
struct QvbNumberOption : QvbOption {
  int least;
  int most;

  constexpr int standardNumber() const noexcept {
    int number = 0;
    for (const char* digit = standard; *digit; ++digit)
      number = number * 10 + (*digit - '0');
    return number;
  }
};

// The path of a folder, or its "file:" URI.
struct QvbFolderOption : QvbOption {};

struct QvbOptions {
  static constexpr int LargestNumber = std::numeric_limits<int>::max();
  static constexpr int AnyNumber = std::numeric_limits<int>::min();
  static constexpr int MostSeconds = LargestNumber / 1000; // what can be counted in milliseconds

  static constexpr QvbFolderOption SystemDefinitions{
      {"BASE/REPOS_SYS_PATH", "folder of the system's repository definitions", ""}};
  static constexpr QvbFolderOption UserDefinitions{
      {"BASE/REPOS_USER_PATH", "folder of the user's repository definitions; made when a definition is saved",
       ""}};
  static constexpr QvbFolderOption RepositoryFileRoot{
      {"BASE/REPOS_FILE_ROOT", "one file root for every repository, instead of their vault paths", ""}};
  static constexpr QvbNumberOption TimeBetweenChecks{
      {"BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS", "milliseconds for which a cached copy counts as current",
       "250"},
      AnyNumber,
      LargestNumber};
  static constexpr QvbOption MasterDataFolder{"MDM/REPOSITORY_ROOT_FOLDER",
                                              "path of the master data folder in a repository",
                                              "foundations/master_data"};
  static constexpr QvbOption ServerName{
      "DMSERVER/NAME", "name of the data-management server, for the identities of jobs in lineage", ""};
  static constexpr QvbOption InstallationFolder{"QVEXEC_HOME",
                                                "installation folder, for the master data templates", ""};
  static constexpr QvbNumberOption LogLevel{
      {"LOG/LEVEL", "log records from this level on, 1 (trace) to 6 (critical)", "4"}, 1, 6};
  static constexpr QvbOption LogFile{"LOG/FILE", "log to this file instead of standard error", ""};
  static constexpr QvbNumberOption ConnectTimeout{
      {"HTTP/CONNECT_TIMEOUT", "seconds until a connection must stand", "10"}, 1, MostSeconds};
  static constexpr QvbNumberOption LowSpeedTime{
      {"HTTP/LOW_SPEED_TIME", "seconds at less than 1 byte/s after which a transfer is given up", "30"},
      1,
      MostSeconds};
  static constexpr QvbNumberOption MaxBody{
      {"HTTP/MAX_BODY", "bytes of the largest body taken", "1073741824"}, 1, LargestNumber};
  static constexpr QvbOption TrustedCertificates{
      "HTTP/CA_FILE", "certificates to trust instead of the system's, a PEM file", ""};
  static constexpr QvbOption Proxy{"HTTP/PROXY", "URL of a proxy", ""};
  static constexpr QvbOption TicketServer{"AUTH/SERVER", "base URL of the ticket server (CAS REST protocol)",
                                          ""};

  // In the order in which they are shown.
  static constexpr const QvbOption* All[] = {&SystemDefinitions,
                                             &UserDefinitions,
                                             &RepositoryFileRoot,
                                             &TimeBetweenChecks,
                                             &MasterDataFolder,
                                             &ServerName,
                                             &InstallationFolder,
                                             &LogLevel,
                                             &LogFile,
                                             &ConnectTimeout,
                                             &LowSpeedTime,
                                             &MaxBody,
                                             &TrustedCertificates,
                                             &Proxy,
                                             &TicketServer};
};
