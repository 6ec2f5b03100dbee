// The HTTP source of the file cache with a web service and tickets of the test's own.
#pragma once

#include "qvfilecacheimpl_http.h"
#include "support/countingcontext.h"
#include "support/httpserver.h"
#include "support/logcapture.h"
#include "support/tempdir.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

inline constexpr const char* category = "QV.FileAccessCache.HttpSystemProvider";
inline constexpr const char* firstDate = "2026-01-02T03:04:05.006";

// A record of the source.
inline LogLine line(int level, const std::string& text) {
  return {category, level, "src/qvfilecacheimpl", text};
}

inline std::vector<LogLine> records(std::initializer_list<LogLine> lines) { return lines; }

inline std::vector<LogLine> operator+(std::vector<LogLine> lines, const std::vector<LogLine>& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

inline std::string readFile(const QvbString& path) {
  std::ifstream in(path.asCstr(), std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

struct Answer {
  int result;
  std::string error;

  bool operator==(const Answer&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const Answer& answer) {
  return out << '{' << answer.result << ", \"" << answer.error << "\"}";
}

// A web service with the job "/job" whose content is at "/content", and a provider whose tickets are T-1, T-2, ...
class HttpSource : public testing::Test {
protected:
  HttpSource() {
    server.serveJob("/job", firstDate, "jobs/load", server.url("/content"));
    server.serve("/content", "the content");
  }
  // Whatever is asked for is asked for in the caller's name.
  ~HttpSource() override { EXPECT_THAT(tickets.users, testing::IsSubsetOf({std::string("alice")})); }

  // What the provider logged since the last call.
  std::vector<LogLine> logged() {
    auto lines = log.lines(category);
    log.clear();
    return lines;
  }
  std::vector<LogLine> loggedAboveTrace() {
    auto lines = logged();
    std::erase_if(lines, [](const LogLine& record) { return record.level == 1; });
    return lines;
  }
  Answer getDate(const std::string& path, bool refresh, QvbDate* date) {
    QvbString error;
    const int result = provider.getModifiedDate(alice.get(), url(path), date, &error, refresh);
    return {result, str(error)};
  }
  Answer getDate(const std::string& path = "/job", bool refresh = true) {
    QvbDate date;
    return getDate(path, refresh, &date);
  }
  // `error` is what the error text holds before.
  Answer fetch(const std::string& path = "/job", QvbString error = {}) {
    const int result = provider.updateLocalFileContent(alice.get(), url(path), local, &error);
    return {result, str(error)};
  }
  bool exists(const std::string& path = "/job") { return provider.exists(alice.get(), url(path), &unread); }
  QvbString url(const std::string& path) const { return text(server.url(path)); }
  std::string job(const std::string& path = "/job") const { return server.url(path); }
  std::size_t requests() const { return server.requests().size(); }
  // The records of a request for the description, up to its answer; `ticket` is its ticket.
  std::vector<LogLine> asks(const std::string& ticket, const std::string& path = "/job") const {
    return {line(1, "Fetching HTTPInfo for: " + job(path)),
            line(1, "Fetching service ticket for: " + job(path)),
            line(1, "Obtained service ticket for: " + ticket),
            line(1, "HTTP (GET) for: " + job(path) + "?ticket=" + ticket)};
  }
  std::vector<LogLine> asksForContent(const std::string& ticket) const {
    return {line(1, "fetching content for: " + job()),
            line(1, "fetching service ticket for: " + job("/content")),
            line(1, "HTTP (GET) of content: " + job("/content") + "?ticket=" + ticket)};
  }
  std::vector<LogLine> writesLocalFile() const {
    return {line(1, "Opening local file cache entry: " + str(local)),
            line(1, "Writing file cache entry contents: " + str(local)),
            line(1, "Closing file cache entry: " + str(local))};
  }
  // What the latest ticket made of a content's URL.
  std::string latestTicket() const { return "?ticket=T-" + std::to_string(tickets.calls.size()); }
  // The context gives one more ticket, and then none.
  void runOutOfTickets() {
    tickets.ticketFor = [this](QvbString* ticket, QvbString*) {
      *ticket = "T-last";
      tickets.ticketFor = [](QvbString*, QvbString* error) {
        *error = "the vault is locked";
        return false;
      };
      return true;
    };
  }

  HttpServer server;
  TempDir folder;
  const QvbString local = text(folder.write("copy", "old copy"));
  const ReleasedSubject alice{qvbSubjectCreate("alice", QvbString())};
  QvbString unread;
  CountingContext::Record tickets;
  CountingContext::Factory factory{&tickets};
  LogCapture log;
  RemoteHttpFileProvider provider;
};
