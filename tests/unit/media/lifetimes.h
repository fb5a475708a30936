#pragma once

#include "media/mpegts.h"

// What is left of objects that nothing outside the daemon's code has a handle of.

/// Counts Qt's objects from its beginning on. One at a time.
class QtObjects
{
public:
    QtObjects();
    ~QtObjects();
    QtObjects(const QtObjects&) = delete;
    QtObjects& operator=(const QtObjects&) = delete;

    /// Objects made since then and not deleted yet, whichever thread they belong to.
    int alive() const;
};

/// Counts the elements of a factory that come to their end while it lives. One at a time.
class EndedElements
{
public:
    explicit EndedElements(const char* factory);
    ~EndedElements();
    EndedElements(const EndedElements&) = delete;
    EndedElements& operator=(const EndedElements&) = delete;

    int count() const;

private:
    GObjectClass* m_class;
};
