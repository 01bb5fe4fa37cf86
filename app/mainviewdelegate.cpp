#include "mainviewdelegate.h"

#include <atomic>

namespace {
// Read from SDK threads, written once by start-up.
std::atomic<MainViewDelegate*> g_delegate{nullptr};
}  // namespace

MainViewDelegate* MainViewDelegate::instance() { return g_delegate.load(); }

void MainViewDelegate::setInstance(MainViewDelegate* delegate) { g_delegate.store(delegate); }
