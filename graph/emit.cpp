// Posting events.
#include "qvlineagegraph/emit.h"

#include "qvxbase/qvbreleased.h"
#include "qvxhttp/qvxhttp.h"

#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <new>
#include <optional>
#include <thread>
#include <tuple>

namespace qvlineagegraph {

namespace {

using namespace std::chrono_literals;
constexpr std::chrono::milliseconds longestPause = 30s;
constexpr std::size_t longestReason = 300; // of what a backend says

struct Answer {
  int status = 0;   // 0: there was none
  std::string text; // the body, or why there was no answer
  std::optional<std::chrono::seconds> retryAfter;

  bool isSuccess() const { return status >= 200 && status < 300; }
  bool mayPass() const {
    return status == 0 || status == 408 || status == 429 || (status >= 500 && status != 501);
  }
  bool isNoSuchService() const { return status == 404 || status == 405 || status == 501; }
  bool endsAll() const { return mayPass() || status < 400 || status == 401 || status == 403; }
  std::string reason() const {
    return status == 0 ? text
                       : "status " + std::to_string(status) +
                             (text.empty() ? "" : ": " + text.substr(0, longestReason));
  }
};

std::string beforeQuery(const std::string& url) { return url.substr(0, url.find('?')); }

std::string addressOf(const std::string& url) {
  const auto authority = url.find("://");
  const auto path = authority == std::string::npos ? authority : url.find('/', authority + 3);
  if (path == std::string::npos)
    return url + "/api/v1/lineage";
  return url.ends_with('/')
             ? (path + 1 == url.size() ? url + "api/v1/lineage" : url.substr(0, url.size() - 1))
             : url;
}

class Emitter {
public:
  Emitter(std::span<const std::string> events, const EmitOptions& options)
      : m_events(events), m_options(options), m_address(addressOf(beforeQuery(options.url))),
        m_query(options.url.substr(beforeQuery(options.url).size())) {
    m_report.done = std::min(options.first, events.size());
  }

  EmitReport run() {
    bool goesOn = true;
    while (goesOn && m_report.done < m_events.size()) {
      goesOn = m_takesBatches ? postBatch() : postOne(m_report.done);
      const bool isToldToEnd = goesOn && m_options.progress && !m_options.progress(m_report.done);
      if (isToldToEnd && m_report.done < m_events.size()) {
        m_report.stopped = "it was stopped";
        goesOn = false;
      }
    }
    return std::move(m_report);
  }

private:
  Answer postOnce(const std::string& address, const std::string& body) const {
    httpGet request{QvbString(address), {}, QvbString("application/json")};
    if (!m_options.apiKey.empty())
      request.headers.emplace_back("Authorization", QvbString("Bearer " + m_options.apiKey));
    httpClient client;
    const Released<httpResponse> response(client.post(request, QvbString(body)));
    if (!response)
      return {0, std::string(client.getErrorText().view()), {}};
    Answer answer{response->getStatusCode(), std::string(response->getBody().view()), {}};
    const QvbString wait = response->getHeader("Retry-After");
    unsigned seconds = 0;
    if (std::from_chars(wait.view().data(), wait.view().data() + wait.view().size(), seconds).ec ==
        std::errc())
      answer.retryAfter = std::chrono::seconds(seconds);
    return answer;
  }

  // The first answer that is not to be waited over, or the last one.
  Answer post(const std::string& address, const std::string& body) const {
    auto pause = m_options.pause;
    for (unsigned attempt = 1;; ++attempt) {
      Answer answer = postOnce(address, body);
      if (!answer.mayPass() || attempt >= m_options.attempts)
        return answer;
      const auto wanted =
          std::chrono::duration_cast<std::chrono::milliseconds>(answer.retryAfter.value_or(0s));
      std::this_thread::sleep_for(std::min(std::max(pause, wanted), longestPause));
      pause = std::min(pause * 2, longestPause);
    }
  }

  bool stop(const Answer& answer) {
    m_report.stopped = answer.reason();
    if (answer.status >= 300 && answer.status < 400)
      m_report.stopped += ", a redirect, which is not followed";
    return false;
  }
  void refuse(std::size_t index, std::string reason) {
    m_report.refused.push_back({index, std::move(reason)});
  }

  // Whether to go on.
  bool postOne(std::size_t index) {
    const Answer answer = post(m_address + m_query, m_events[index]);
    if (answer.isSuccess())
      ++m_report.accepted;
    else if (answer.endsAll() || answer.isNoSuchService())
      return stop(answer);
    else
      refuse(index, answer.reason());
    m_report.done = index + 1;
    return true;
  }

  bool postBatch() {
    const std::size_t first = m_report.done;
    const std::size_t size = std::min(std::max<std::size_t>(m_options.batch, 1), m_events.size() - first);
    std::string body = "[";
    for (const auto& event : m_events.subspan(first, size))
      body.append(body.size() == 1 ? "" : ",").append(event);
    const Answer answer = post(m_address + "/batch" + m_query, body + "]");
    if (answer.isSuccess())
      return takeBatch(first, size, answer);
    if (answer.isNoSuchService()) {
      m_takesBatches = false;
      return true;
    }
    return answer.endsAll() ? stop(answer) : postEach(first, size);
  }

  // What a batch was refused for, each of its events tells alone.
  bool postEach(std::size_t first, std::size_t size) {
    for (std::size_t i = first; i < first + size; ++i)
      if (!postOne(i))
        return false;
    return true;
  }

  struct Failure {
    std::string reason;
    bool mayPass = false;
  };

  // A batch that was taken as a whole may name events that were not: "failed_events", with index and reason.
  static std::vector<std::optional<Failure>> failuresIn(const std::string& body, std::size_t size) {
    std::vector<std::optional<Failure>> failures(size);
    simdjson::dom::parser parser;
    simdjson::dom::array events;
    const auto error = parser.parse(body)["failed_events"].get(events);
    if (error == simdjson::MEMALLOC)
      throw std::bad_alloc();
    if (error)
      return failures;
    for (const simdjson::dom::element event : events) {
      std::uint64_t index = 0;
      if (event["index"].get(index) || index >= size)
        continue;
      std::string_view reason = "no reason is given";
      bool mayPass = false;
      std::ignore = event["reason"].get(reason);
      std::ignore = event["retriable"].get(mayPass);
      failures[index] = {std::string(reason.substr(0, longestReason)), mayPass};
    }
    return failures;
  }

  bool takeBatch(std::size_t first, std::size_t size, const Answer& answer) {
    const auto failures = failuresIn(answer.text, size);
    for (std::size_t i = 0; i < size; ++i) {
      if (failures[i] && failures[i]->mayPass) {
        if (!postOne(first + i))
          return false;
        continue;
      }
      if (failures[i])
        refuse(first + i, failures[i]->reason);
      else
        ++m_report.accepted;
      m_report.done = first + i + 1;
    }
    return true;
  }

  std::span<const std::string> m_events;
  const EmitOptions& m_options;
  std::string m_address; // up to its query
  std::string m_query;
  bool m_takesBatches = true;
  EmitReport m_report;
};

} // namespace

EmitReport emitEvents(std::span<const std::string> events, const EmitOptions& options) {
  return Emitter(events, options).run();
}

} // namespace qvlineagegraph
