#include "panel/pages.h"

#include <fmt/format.h>

#include <algorithm>

namespace vb::panel {

void Page::push(Piece piece) {
    bytes_ += piece->size();
    queue_.push_back(std::move(piece));
    filled_.notify_one();
}

void Page::put_state(const News& news) {
    if (wants_whole_) {
        if (has_room()) {
            push(news.whole());
            wants_whole_ = false;
        }
    } else if (news.changes && has_room()) {
        push(news.changes);
    } else if (news.changes) {
        wants_whole_ = true;
    }
}

void Page::put_lost(const News& news) {
    lost_ += news.lost;
    if (lost_ > 0 && has_room()) {
        push(std::make_shared<std::string>(
            fmt::format("event: lost\ndata: {{\"events\":{}}}\n\n", lost_)));
        lost_ = 0;
    }
}

void Page::put_trace(const News& news) {
    if (news.trace && has_room()) {
        push(news.trace);
    } else if (news.trace) {
        lost_ += news.traced;
        wants_whole_ = true;
    }
}

void Page::put(const News& news) {
    const std::lock_guard lock(mutex_);
    put_lost(news);
    put_state(news);
    put_trace(news);
}

Piece Page::next(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    filled_.wait_for(lock, patience, [this] { return !queue_.empty(); });
    if (queue_.empty()) {
        return nullptr;
    }
    Piece piece = std::move(queue_.front());
    queue_.pop_front();
    bytes_ -= piece->size();
    return piece;
}

std::shared_ptr<Page> Pages::open() {
    const std::lock_guard lock(mutex_);
    if (pages_.size() >= kMost) {
        return nullptr;
    }
    pages_.push_back(std::make_shared<Page>());
    opened_.notify_all();
    Page* page = pages_.back().get();
    // The owner outside is another than ours: when that goes, the page is closed.
    return {page, [this](Page* closed) { close(closed); }};
}

void Pages::close(const Page* page) {
    const std::lock_guard lock(mutex_);
    std::erase_if(pages_, [&](const auto& each) { return each.get() == page; });
}

void Pages::wait_for_one() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return !pages_.empty(); });
}

bool Pages::any() const {
    const std::lock_guard lock(mutex_);
    return !pages_.empty();
}

void Pages::put(const News& news) {
    std::vector<std::shared_ptr<Page>> pages;
    {
        const std::lock_guard lock(mutex_);
        pages = pages_;
    }
    for (const auto& page : pages) {
        page->put(news);
    }
}

} // namespace vb::panel
