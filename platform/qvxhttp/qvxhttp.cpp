#include "qvxhttp/qvxhttp.h"

#include "qvsfio/npfio.h"
#include "qvxbase/private/qvbperthread.h"
#include "qvxbase/qvbconfig.h"
#include "qvxbase/qvbreleased.h"
#include "qvxbase/qvbresult.h"
#include "qvxbase/qvbthreads.h"
#include "qvxbase/qvbunload.h"
#include "qvxhttp/private/qvhttpurl.h"
#include "qvxlog/qvlog.h"

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include <curl/curl.h>

namespace {

QvLog httpLog() { return {"QV.Base.Http", "platform/qvxhttp/qvxhttp"}; }

// Far more than any server means well with.
constexpr std::size_t maxHeaderBytes = 262144;

// --- Options

// Whether the text was not there yet.
bool isNews(const QvbString& text) {
  struct Told {
    QvbMutex mutex;
    std::set<QvbString> texts QVB_GUARDED_BY(mutex);
  };
  static Told& told = qvbUntilUnload<Told>();
  const QvbMutexGuard guard(told.mutex);
  return told.texts.insert(text).second;
}

int valueOf(const QvbNumberOption& option) {
  const QvbOptionNumber number = qvbGetConfigNumber(option);
  if (!number.refused.isNull()) {
    const QvbString fault = qvbStringFormat("%s is not a number from %d to %d, %d is used: %s", option.key,
                                            option.least, option.most, number.value, number.refused);
    if (isNews(fault))
      httpLog().error("%s", fault);
  }
  return number.value;
}

// --- What a request may hold

bool isControl(char character) noexcept {
  const auto code = static_cast<unsigned char>(character);
  return code < 0x20 || code == 0x7f;
}

bool hasControl(const QvbString& text) { return std::ranges::any_of(text.view(), isControl); }

// RFC 9110, section 5.6.2.
bool isToken(std::string_view text) {
  constexpr std::string_view characters = "!#$%&'*+-.^_`|~0123456789"
                                          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
  return !text.empty() && text.find_first_not_of(characters) == text.npos;
}

// Why the request cannot be sent, null when it can.
QvbString faultOf(const httpGet& request) {
  if (hasControl(request.url))
    return "The URL holds a control character";
  if (!qvIsHttpUrl(request.url.view()))
    return "The URL is not an http or https URL";
  if (hasControl(request.contentType))
    return "The content type holds a control character";
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name.view()))
      return "The name of a header is not a word";
    if (hasControl(value))
      return qvbStringFormat("The header %s holds a control character", name);
  }
  return {};
}

// --- Responses

// The registered reason phrases (RFC 9110, section 15, and the IANA registry of status codes).
struct Reason {
  int status;
  const char* phrase;
};
constexpr std::array reasons{
    Reason{100, "Continue"},
    Reason{101, "Switching Protocols"},
    Reason{102, "Processing"},
    Reason{103, "Early Hints"},
    Reason{200, "OK"},
    Reason{201, "Created"},
    Reason{202, "Accepted"},
    Reason{203, "Non-Authoritative Information"},
    Reason{204, "No Content"},
    Reason{205, "Reset Content"},
    Reason{206, "Partial Content"},
    Reason{207, "Multi-Status"},
    Reason{208, "Already Reported"},
    Reason{226, "IM Used"},
    Reason{300, "Multiple Choices"},
    Reason{301, "Moved Permanently"},
    Reason{302, "Found"},
    Reason{303, "See Other"},
    Reason{304, "Not Modified"},
    Reason{305, "Use Proxy"},
    Reason{307, "Temporary Redirect"},
    Reason{308, "Permanent Redirect"},
    Reason{400, "Bad Request"},
    Reason{401, "Unauthorized"},
    Reason{402, "Payment Required"},
    Reason{403, "Forbidden"},
    Reason{404, "Not Found"},
    Reason{405, "Method Not Allowed"},
    Reason{406, "Not Acceptable"},
    Reason{407, "Proxy Authentication Required"},
    Reason{408, "Request Timeout"},
    Reason{409, "Conflict"},
    Reason{410, "Gone"},
    Reason{411, "Length Required"},
    Reason{412, "Precondition Failed"},
    Reason{413, "Content Too Large"},
    Reason{414, "URI Too Long"},
    Reason{415, "Unsupported Media Type"},
    Reason{416, "Range Not Satisfiable"},
    Reason{417, "Expectation Failed"},
    Reason{421, "Misdirected Request"},
    Reason{422, "Unprocessable Content"},
    Reason{423, "Locked"},
    Reason{424, "Failed Dependency"},
    Reason{425, "Too Early"},
    Reason{426, "Upgrade Required"},
    Reason{428, "Precondition Required"},
    Reason{429, "Too Many Requests"},
    Reason{431, "Request Header Fields Too Large"},
    Reason{451, "Unavailable For Legal Reasons"},
    Reason{500, "Internal Server Error"},
    Reason{501, "Not Implemented"},
    Reason{502, "Bad Gateway"},
    Reason{503, "Service Unavailable"},
    Reason{504, "Gateway Timeout"},
    Reason{505, "HTTP Version Not Supported"},
    Reason{506, "Variant Also Negotiates"},
    Reason{507, "Insufficient Storage"},
    Reason{508, "Loop Detected"},
    Reason{511, "Network Authentication Required"},
};

QvbString registeredReason(int status) {
  const auto* const found = std::ranges::find(reasons, status, &Reason::status);
  return found == reasons.end() ? "" : found->phrase;
}

class Response final : public httpResponse {
public:
  int getStatusCode() override { return status; }
  QvbString getStatusCodeMessage() override { return reason.isEmpty() ? registeredReason(status) : reason; }
  QvbString getBody() override { return body; }
  QvbString getHeader(const QvbString& name) override {
    const auto found = std::ranges::find_if(
        headers, [&](const auto& header) { return header.first.compare(name, true) == 0; });
    return found == headers.end() ? QvbString() : found->second;
  }
  void release() override { delete this; }

  int status = 0;
  QvbString reason;
  QvbString body{std::string_view()};
  std::vector<std::pair<QvbString, QvbString>> headers;
};

std::string_view withoutLineEnd(std::string_view line) {
  return line.substr(0, line.find_last_not_of("\r\n") + 1);
}

// "Not Found" of "HTTP/1.1 404 Not Found".
std::string_view reasonIn(std::string_view statusLine) {
  const std::size_t status = statusLine.find(' ');
  const std::size_t reason = statusLine.find(' ', std::min(status, statusLine.size() - 1) + 1);
  return reason == statusLine.npos ? std::string_view() : statusLine.substr(reason + 1);
}

// The lengths that the header lines of one response announce must all be the same (RFC 9112, section 6.3): which bytes
// are the body is anybody's guess otherwise.
class AnnouncedLength {
public:
  // False when the line contradicts itself or one before it.
  bool agreesWith(std::string_view line) {
    constexpr std::string_view field = "Content-Length:";
    if (!qvbEqualsIgnoreCase(line.substr(0, field.size()), field))
      return true;
    std::string_view rest = line.substr(field.size());
    while (true) {
      const std::size_t comma = std::min(rest.find(','), rest.size());
      if (!agreesWithValue(QvbString(rest.substr(0, comma)).trim()))
        return false;
      if (comma == rest.size())
        return true;
      rest.remove_prefix(comma + 1);
    }
  }

private:
  bool agreesWithValue(const QvbString& value) {
    if (m_value.isNull())
      m_value = value;
    return m_value == value;
  }

  QvbString m_value;
};

// --- Transfers

// The client library with the handles of all threads, which end before it does.
struct Client {
  Client() : ready(curl_global_init(CURL_GLOBAL_DEFAULT)) {}
  ~Client() { curl_global_cleanup(); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  const CURLcode ready;
};
using Handle = EndedBy<CURL, curl_easy_cleanup>;

// The thread's own handle, which keeps connections open for the next request.
CURL* threadHandle() {
  static Client& client = qvbUntilUnload<Client>();
  static auto& handles = qvbUntilUnload<QvbPerThread<Handle>>();
  auto& handle = handles.get();
  if (client.ready == CURLE_OK && !handle)
    handle.reset(curl_easy_init());
  if (!handle)
    throw std::bad_alloc();
  return handle.get();
}

class HeaderList {
public:
  void add(const std::string& line) {
    curl_slist* const grown = curl_slist_append(m_list.get(), line.c_str());
    if (!grown)
      throw std::bad_alloc();
    // the head changes only when the list was empty
    if (!m_list)
      m_list.reset(grown);
  }
  // An empty value needs a form of its own: "Name:" would take the header away.
  void add(const QvbString& name, const QvbString& value) {
    const std::string word(name.view());
    add(value.isEmpty() ? word + ";" : word + ": " + std::string(value.view()));
  }
  curl_slist* get() const { return m_list.get(); }

private:
  EndedBy<curl_slist, curl_slist_free_all> m_list;
};

// One request over the thread's handle, which it leaves without a trace of itself but the connection.
class Transfer {
public:
  explicit Transfer(const httpGet& request)
      : m_handle(threadHandle()), m_bodyLimit(valueOf(QvbOptions::MaxBody)),
        m_response(std::make_unique<Response>()) {
    set(CURLOPT_ERRORBUFFER, m_detail.data());
    setLimits();
    setTrust();
    setRequest(request);
    setSinks();
  }
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  // The body is not copied.
  void setBody(const QvbString& body) {
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDS, body.asCstr());
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.length()));
    // no round trip before a large body
    m_headers.add("Expect:");
  }

  // A response that came whole.
  QvbResult<std::unique_ptr<Response>> perform() {
    set(CURLOPT_HTTPHEADER, m_headers.get());
    if (m_code == CURLE_OK)
      m_code = curl_easy_perform(m_handle.get());
    if (m_isOutOfMemory)
      throw std::bad_alloc();
    if (m_code != CURLE_OK)
      return QvbFailure{NP_FIO_ERROR, describeFault()};
    takeStatusAndHeaders();
    return std::move(m_response);
  }

private:
  // The first failure counts, and nothing is sent after one.
  template<class Value>
  void set(CURLoption option, Value value) {
    if (m_code == CURLE_OK)
      m_code = curl_easy_setopt(m_handle.get(), option, value);
  }

  void setLimits() {
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(valueOf(QvbOptions::ConnectTimeout)));
    set(CURLOPT_LOW_SPEED_LIMIT, 1L);
    set(CURLOPT_LOW_SPEED_TIME, static_cast<long>(valueOf(QvbOptions::LowSpeedTime)));
    set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(m_bodyLimit));
  }
  void setTrust() {
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    set(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    // an empty text, unlike none, keeps the environment out
    set(CURLOPT_PROXY, qvbGetConfigOption(QvbOptions::Proxy).asCstr());
    set(CURLOPT_NOPROXY, "");
    if (const QvbString file = qvbGetConfigOption(QvbOptions::TrustedCertificates); !file.isEmpty()) {
      set(CURLOPT_CAINFO, file.asCstr());
      set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
  }
  void setRequest(const httpGet& request) {
    set(CURLOPT_URL, request.url.asCstr());
    // a ticket is for the URL as it was named
    set(CURLOPT_PATH_AS_IS, 1L);
    for (const auto& [name, value] : request.headers)
      m_headers.add(name, value);
    if (!request.contentType.isEmpty())
      m_headers.add("Content-Type", request.contentType);
  }
  void setSinks() {
    set(CURLOPT_HEADERFUNCTION, &Transfer::takeHeaderLine);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, &Transfer::takeBody);
    set(CURLOPT_WRITEDATA, this);
  }

  // libcurl calls these; whatever is less than all of the bytes ends the transfer.
  static std::size_t takeHeaderLine(const char* bytes, std::size_t, std::size_t count, void* self) noexcept {
    return static_cast<Transfer*>(self)->take(&Transfer::addHeaderLine, {bytes, count});
  }
  static std::size_t takeBody(const char* bytes, std::size_t, std::size_t count, void* self) noexcept {
    return static_cast<Transfer*>(self)->take(&Transfer::addBody, {bytes, count});
  }
  // No exception may pass through libcurl.
  std::size_t take(bool (Transfer::*add)(std::string_view), std::string_view bytes) noexcept {
    try {
      return (this->*add)(bytes) ? bytes.size() : 0;
    } catch (const std::bad_alloc&) {
      m_isOutOfMemory = true;
      return 0;
    }
  }
  // Interim responses come with status lines of their own; the last one counts.
  bool addHeaderLine(std::string_view line) {
    m_headerBytes += line.size();
    if (line.starts_with("HTTP/")) {
      m_response->reason = QvbString(reasonIn(withoutLineEnd(line)));
      m_length = AnnouncedLength();
    }
    m_isLengthUnclear = !m_length.agreesWith(line);
    return m_headerBytes <= maxHeaderBytes && !m_isLengthUnclear;
  }
  bool addBody(std::string_view bytes) {
    m_isBodyTooLarge = bytes.size() > static_cast<std::size_t>(m_bodyLimit) -
                                          static_cast<std::size_t>(m_response->body.length());
    if (!m_isBodyTooLarge)
      m_response->body.append(bytes);
    return !m_isBodyTooLarge;
  }

  void takeStatusAndHeaders() {
    long status = 0;
    curl_easy_getinfo(m_handle.get(), CURLINFO_RESPONSE_CODE, &status);
    m_response->status = static_cast<int>(status);
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(m_handle.get(), CURLH_HEADER, -1, header)))
      m_response->headers.emplace_back(header->name, header->value);
  }

  QvbString describeFault() const {
    if (m_isBodyTooLarge || m_code == CURLE_FILESIZE_EXCEEDED)
      return qvbStringFormat("The body is larger than %d bytes", m_bodyLimit);
    if (m_isLengthUnclear)
      return "The response announces more than one length";
    if (m_headerBytes > maxHeaderBytes)
      return qvbStringFormat("The headers are larger than %u bytes", maxHeaderBytes);
    // libcurl's own words may quote a URL, with whatever it holds
    const std::string_view detail(m_detail.data());
    return detail.empty() || detail.find_first_of("?@") != detail.npos ? curl_easy_strerror(m_code)
                                                                       : m_detail.data();
  }

  // At its end what the request set is taken back; the connections stay.
  EndedBy<CURL, curl_easy_reset> m_handle;
  CURLcode m_code = CURLE_OK;
  std::array<char, CURL_ERROR_SIZE> m_detail{};
  HeaderList m_headers;
  int m_bodyLimit;
  std::unique_ptr<Response> m_response;
  std::size_t m_headerBytes = 0;
  AnnouncedLength m_length;
  bool m_isLengthUnclear = false;
  bool m_isBodyTooLarge = false;
  bool m_isOutOfMemory = false;
};

// --- Error texts

// "https://host:port": paths name tickets as queries do. Null for what is no URL.
QvbString originOf(const QvbString& text) {
  const EndedBy<CURLU, curl_url_cleanup> url(curl_url());
  if (!url || curl_url_set(url.get(), CURLUPART_URL, text.asCstr(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    return {};
  for (const CURLUPart part : {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_PATH,
                               CURLUPART_QUERY, CURLUPART_FRAGMENT})
    curl_url_set(url.get(), part, nullptr, 0);
  char* origin = nullptr;
  curl_url_get(url.get(), CURLUPART_URL, &origin, 0);
  const EndedBy<char, curl_free> owned(origin);
  return QvbString(origin).trimChar('/', false, true);
}

QvbResult<std::unique_ptr<Response>> perform(const httpGet& request, const QvbString* body) {
  if (const QvbString fault = faultOf(request); !fault.isNull())
    return QvbFailure{NP_FIO_ERROR, fault};
  Transfer transfer(request);
  if (body)
    transfer.setBody(*body);
  return transfer.perform();
}

httpResponse* send(const httpGet& request, const QvbString* body, QvbString* error) {
  auto response = perform(request, body);
  error->setNull();
  if (response)
    return (*response).release();
  const QvbString& fault = response.failure().text;
  const QvbString origin = originOf(request.url);
  *error = origin.isNull() ? fault : qvbStringFormat("%s: %s", origin, fault);
  httpLog().error("No response: %s", *error);
  return nullptr;
}

} // namespace

httpResponse* httpClient::execute(const httpGet& request) { return send(request, nullptr, &m_error); }

httpResponse* httpClient::post(const httpGet& request, const QvbString& body) {
  return send(request, &body, &m_error);
}
