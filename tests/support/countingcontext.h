// A host's own source of service tickets, which numbers them and notes what it is asked.
#pragma once

#include "qvxhttp/qvsecuritycontext.h"
#include "support/textio.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

class CountingContext final : public QvSecurityContext {
public:
  struct Record {
    std::vector<std::string> calls;
    std::set<std::string> users; // empty for a subject without information
    int made = 0;
    int released = 0;
    std::vector<int> releasedWhenMade; // how many had been released as each one was made
    std::function<void()> whenAsked = [] {};
    std::function<void()> whenReleased = [] {};
    std::function<bool(QvbString* ticket, QvbString* error)> ticketFor;
    bool renews = true;
    QvbString renewError = "no renewal";
  };

  // Makes the contexts of the provider under test while it lives.
  class Factory {
  public:
    explicit Factory(Record* record) {
      qvbSetSecurityContextFactory(
          [](void* data) -> QvSecurityContext* {
            auto* const target = static_cast<Record*>(data);
            ++target->made;
            target->releasedWhenMade.push_back(target->released);
            return new CountingContext(target);
          },
          record);
    }
    ~Factory() { qvbSetSecurityContextFactory(nullptr, nullptr); }
    Factory(const Factory&) = delete;
    Factory& operator=(const Factory&) = delete;
  };

  bool getServiceTicket(ASSubject* subject, const QvbString& url, QvbString* ticket,
                        QvbString* error) override {
    note("ticket " + str(url), subject);
    if (m_record->ticketFor)
      return m_record->ticketFor(ticket, error);
    *ticket = text("T-" + std::to_string(m_record->calls.size()));
    return true;
  }
  bool renew(ASSubject* subject, const QvbString& url, QvbString* error) override {
    note("renew " + str(url), subject);
    if (!m_record->renews)
      *error = m_record->renewError;
    return m_record->renews;
  }
  void release() override {
    m_record->whenReleased();
    ++m_record->released;
    delete this;
  }

private:
  explicit CountingContext(Record* record) : m_record(record) {}

  void note(const std::string& call, ASSubject* subject) {
    QvbSubjectInfoParm user;
    qvbSubjectInfo(subject, &user, nullptr);
    m_record->users.insert(str(user.userId));
    m_record->calls.push_back(call);
    m_record->whenAsked();
  }

  Record* m_record;
};
