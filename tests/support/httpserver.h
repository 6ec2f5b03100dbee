// A well-behaved server for tests of HTTP, plain or TLS, on 127.0.0.1 and a port of its own, in threads of this process:
// files, job descriptions, scripted statuses, service tickets. It ends, with every connection, when the object does;
// waits have bounds besides.
//
// A path is what stands before the first "?" of a target; the query is never part of it. All operations may be called
// from any thread, also while requests are served.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

// One request as it came, logged before it is answered.
struct ServedRequest {
  std::string method;
  std::string target; // as the request line has it, query and ticket included
  std::multimap<std::string, std::string> headers;
  std::string body;
  int connection = 0; // the client's port: equal for requests on one connection

  std::string path() const;
  // What follows the last "?ticket=" or "&ticket=", empty when there is none.
  std::string ticket() const;
  // The first header of this exact name, empty when there is none.
  std::string header(const std::string& name) const;
};

class HttpServer {
public:
  enum class Transport {
    Plain,
    Tls,              // with a certificate for 127.0.0.1
    TlsForAnotherHost // with one for "other.example"
  };

  explicit HttpServer(Transport transport = Transport::Plain);
  ~HttpServer();
  HttpServer(const HttpServer&) = delete;
  HttpServer& operator=(const HttpServer&) = delete;

  // "http://127.0.0.1:PORT/path"; the path begins with "/" and may carry a query.
  std::string url(const std::string& path) const;
  // The PEM file of the certificate, which a client has to trust; it lives as long as the server.
  std::string certificateFile() const;

  // --- What is served; everything else is 404.
  using Headers = std::multimap<std::string, std::string>;
  void serve(const std::string& path, const std::string& body, const std::string& contentType = "text/plain",
             const Headers& headers = {});
  // <processjob modifiedDate="..." path="..."><links><link rel="self" href="..."/></links></processjob>
  void serveJob(const std::string& path, const std::string& modifiedDate, const std::string& jobPath,
                const std::string& contentLink);
  void remove(const std::string& path);
  // The next requests of the path get these statuses, one each, with no look at tickets; a 200 stands for the usual
  // answer. After the last one everything is as before.
  void answer(const std::string& path, const std::vector<int>& statuses);
  // Until it is removed: 302 with this Location.
  void redirect(const std::string& path, const std::string& location);
  // Holds the answers for the path back, for at most 10 s, until the next call with false.
  void hold(const std::string& path, bool held);
  // Waits, at most 10 s, until so many requests are held back at the path; whether they were.
  bool waitForHeld(const std::string& path, int requests);

  // --- Service tickets: the CAS REST protocol below ticketServer().
  std::string ticketServer() const; // what the option AUTH/SERVER takes
  std::string loginPath() const;    // the path of logins, for answer() and requests()
  void addUser(const std::string& user, const std::string& password);
  // From now on everything but the ticket server is 401 unless its ticket is fresh, unused and for this very URL, which
  // is the request's without "?ticket=..." or "&ticket=..." at the end.
  void requireTickets();
  // How long a service ticket lives from now on (default 60 s).
  void setTicketLife(std::chrono::milliseconds life);
  // Every login made so far is lost: asking for a ticket on it is 404.
  void expireLogins();
  // The next requests for a service ticket get these statuses, one each, a 200 standing for a ticket.
  void answerTicketRequests(const std::vector<int>& statuses);
  // The next service tickets are these texts, one each, byte for byte; the protected paths do not know them.
  void issueTickets(const std::vector<std::string>& tickets);
  // Until it is given an empty one: logins answer this Location.
  void setLoginLocation(const std::string& location);
  int logins() const;        // that succeeded
  int ticketsIssued() const; // service tickets given out

  // --- What was asked for, in the order of arrival; the ticket server's requests included.
  std::vector<ServedRequest> requests() const;
  std::vector<ServedRequest> requests(const std::string& path) const;
  void clearRequests();

private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};
