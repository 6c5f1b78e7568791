#include "plugin/runmonitor.h"

#include <unistd.h>

namespace {

/** Sleeps until the process is gone. */
[[noreturn]] void sleepForGood()
{
    for (;;)
        pause();
}

} // namespace

bool RunMonitor::begin()
{
    const Lock lock(m_mutex);
    m_running = !m_ending;
    return m_running;
}

void RunMonitor::end()
{
    const Lock lock(m_mutex);
    m_running = false;
    m_changed.notify_all();
}

bool RunMonitor::goesOn()
{
    Lock lock(m_mutex);
    restIfEnding(lock);
    return m_libraryOpen;
}

bool RunMonitor::enterLibrary()
{
    Lock lock(m_mutex);
    restIfEnding(lock);
    m_inLibrary = m_libraryOpen;
    return m_inLibrary;
}

void RunMonitor::leaveLibrary()
{
    Lock lock(m_mutex);
    restIfEnding(lock);
    m_inLibrary = false;
    m_changed.notify_all();
}

void RunMonitor::restIfEnding(Lock &lock)
{
    if (!m_ending)
        return;
    m_running = false;
    m_changed.notify_all();
    lock.unlock();
    sleepForGood();
}

void RunMonitor::openLibrary()
{
    const Lock lock(m_mutex);
    m_libraryOpen = true;
}

bool RunMonitor::closeLibrary(Duration patience)
{
    Lock lock(m_mutex);
    m_libraryOpen = false;
    return m_changed.wait_for(lock, patience, [this] { return !m_inLibrary; });
}

bool RunMonitor::waitForEnd(Duration patience)
{
    Lock lock(m_mutex);
    return m_changed.wait_for(lock, patience, [this] { return !m_running; });
}

bool RunMonitor::rest(Duration patience)
{
    Lock lock(m_mutex);
    m_ending = true;
    m_libraryOpen = false;
    return m_changed.wait_for(lock, patience, [this] { return !m_running || m_inLibrary; });
}
