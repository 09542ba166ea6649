#include "support/event_log.h"

#include <algorithm>
#include <condition_variable>
#include <list>
#include <mutex>

#include "support/trace_capture.h"

namespace zarext::test {

class EventLog {
 public:
  static EventLog& Instance() {
    // Views can be static objects of any file.
    static EventLog log;
    return log;
  }

  void Add(EventKind kind, const void* owner, const std::string& text) {
    const std::lock_guard lock(mutex_);
    const Event event{kind, owner, next_++, text};
    bool isShown = false;
    for (EventView* const view : views_) {
      if (Shows(*view, event)) {
        ++view->size_;
        isShown = true;
      }
    }
    if (isShown) {
      events_.push_back(event);
      added_.notify_all();
    }
  }

  void Open(EventView* view) {
    const std::lock_guard lock(mutex_);
    view->start_ = next_;
    views_.push_back(view);
  }

  void Close(EventView* view) {
    const std::lock_guard lock(mutex_);
    std::erase(views_, view);
    DropUnseen();
  }

  void Restart(EventView* view) {
    const std::lock_guard lock(mutex_);
    view->start_ = next_;
    view->size_ = 0;
    DropUnseen();
  }

  std::size_t Size(const EventView& view) {
    const std::lock_guard lock(mutex_);
    return view.size_;
  }

  std::vector<std::string> Texts(const EventView& view, bool withKind) {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> texts;
    for (const Event& event : events_) {
      if (Shows(view, event)) {
        texts.push_back(withKind ? Line(event) : event.text);
      }
    }
    return texts;
  }

  bool WaitFor(const EventView& view, const std::string& beginning, std::chrono::seconds limit) {
    std::unique_lock lock(mutex_);
    return added_.wait_for(lock, limit, [&] {
      return std::ranges::any_of(events_, [&](const Event& event) {
        return Shows(view, event) && Line(event).starts_with(beginning);
      });
    });
  }

 private:
  struct Event {
    EventKind kind;
    const void* owner;
    unsigned long long number;
    std::string text;
  };

  static bool Shows(const EventView& view, const Event& event) {
    return event.number >= view.start_ && view.kind_.value_or(event.kind) == event.kind &&
           (view.owner_ == nullptr || view.owner_ == event.owner);
  }

  static std::string Line(const Event& event) {
    switch (event.kind) {
      case EventKind::kTrace:
        return "trace: " + WithoutPrefix(event.text);
      case EventKind::kProvider:
        return "provider: " + event.text;
      default:
        return "platform: " + event.text;
    }
  }

  void DropUnseen() {
    std::erase_if(events_, [&](const Event& event) {
      return std::ranges::none_of(views_,
                                  [&](const EventView* view) { return Shows(*view, event); });
    });
  }

  std::mutex mutex_;
  std::condition_variable added_;
  unsigned long long next_ = 1;
  // Blocks of their own: tests of want of memory refuse this program long ones.
  std::list<Event> events_;
  std::vector<EventView*> views_;
};

void RecordEvent(EventKind kind, const void* owner, const std::string& text) {
  const DWORD error = GetLastError();
  EventLog::Instance().Add(kind, owner, text);
  SetLastError(error);
}

EventView::EventView(std::optional<EventKind> kind, const void* owner)
    : kind_(kind), owner_(owner) {
  EventLog::Instance().Open(this);
}

EventView::~EventView() { EventLog::Instance().Close(this); }

std::vector<std::string> EventView::Texts() const {
  return EventLog::Instance().Texts(*this, false);
}

std::vector<std::string> EventView::Lines() const {
  return EventLog::Instance().Texts(*this, true);
}

std::size_t EventView::Size() const { return EventLog::Instance().Size(*this); }

void EventView::Clear() { EventLog::Instance().Restart(this); }

bool EventView::WaitFor(const std::string& beginning, std::chrono::seconds limit) const {
  return EventLog::Instance().WaitFor(*this, beginning, limit);
}

}  // namespace zarext::test
