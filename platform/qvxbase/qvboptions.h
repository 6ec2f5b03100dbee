// Every option that the libraries read. This is the one place where they are declared: code reads an option by its
// declaration here, and the documented table is made from the same ones (`qvrepos generate options`).
#pragma once

// How an option's value is found is told in qvbconfig.h.
struct QvbOption {
  const char* key;
  const char* meaning;
  const char* standard; // what holds while the option is unset; empty for nothing

  // For an option that is a number: the standard value as one.
  constexpr int standardNumber() const noexcept {
    int number = 0;
    for (const char* digit = standard; *digit; ++digit)
      number = number * 10 + (*digit - '0');
    return number;
  }
};

struct QvbOptions {
  static constexpr QvbOption SystemDefinitions{"BASE/REPOS_SYS_PATH",
                                               "folder of the system's repository definitions", ""};
  static constexpr QvbOption UserDefinitions{
      "BASE/REPOS_USER_PATH", "folder of the user's repository definitions; made when a definition is saved",
      ""};
  static constexpr QvbOption RepositoryFileRoot{
      "BASE/REPOS_FILE_ROOT", "one file root for every repository, instead of their vault paths", ""};
  static constexpr QvbOption TimeBetweenChecks{"BASE/REMOTEFILECACHE_TIMEBETWEENCHECKS",
                                               "milliseconds for which a cached copy counts as current",
                                               "250"};
  static constexpr QvbOption MasterDataFolder{"MDM/REPOSITORY_ROOT_FOLDER",
                                              "path of the master data folder in a repository",
                                              "foundations/master_data"};
  static constexpr QvbOption ServerName{
      "DMSERVER/NAME", "name of the data-management server, for the identities of jobs in lineage", ""};
  static constexpr QvbOption InstallationFolder{"QVEXEC_HOME",
                                                "installation folder, for the master data templates", ""};
  static constexpr QvbOption LogLevel{"LOG/LEVEL",
                                      "log records from this level on, 1 (trace) to 6 (critical)", "4"};
  static constexpr QvbOption LogFile{"LOG/FILE", "log to this file instead of standard error", ""};
  static constexpr QvbOption ConnectTimeout{"HTTP/CONNECT_TIMEOUT", "seconds until a connection must stand",
                                            "10"};
  static constexpr QvbOption LowSpeedTime{
      "HTTP/LOW_SPEED_TIME", "seconds at less than 1 byte/s after which a transfer is given up", "30"};
  static constexpr QvbOption MaxBody{"HTTP/MAX_BODY", "bytes of the largest body taken", "1073741824"};
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
