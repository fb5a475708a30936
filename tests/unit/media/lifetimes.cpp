#include "lifetimes.h"

#include <atomic>
#include <mutex>
#include <QObject>
#include <set>

// Qt calls what programs that look into others put here, at the end of each object's construction and
// destruction. (Its header is not among the public ones.)
extern "C" Q_DECL_IMPORT quintptr qtHookData[];

namespace {

constexpr int addHook = 3;
constexpr int removeHook = 4;

std::mutex objectsMutex;
std::set<const QObject*> objects;

void noteObject(QObject* object)
{
    const std::lock_guard<std::mutex> lock(objectsMutex);
    objects.insert(object);
}

void forgetObject(QObject* object)
{
    const std::lock_guard<std::mutex> lock(objectsMutex);
    objects.erase(object); // or not there: made before
}

void (*ownFinalize)(GObject*) = nullptr;
std::atomic<int> ended{0};

void noteEnd(GObject* object)
{
    ++ended;
    ownFinalize(object);
}

GObjectClass* classOf(const char* factory)
{
    GstElement* element = gst_element_factory_make(factory, nullptr); // loads the plug-in
    GObjectClass* type = G_OBJECT_GET_CLASS(element); // classes of plug-ins stay
    gst_object_unref(element);
    return type;
}

} // namespace

QtObjects::QtObjects()
{
    objects.clear();
    qtHookData[addHook] = reinterpret_cast<quintptr>(&noteObject);
    qtHookData[removeHook] = reinterpret_cast<quintptr>(&forgetObject);
}

QtObjects::~QtObjects()
{
    qtHookData[addHook] = 0;
    qtHookData[removeHook] = 0;
}

int QtObjects::alive() const
{
    const std::lock_guard<std::mutex> lock(objectsMutex);
    return static_cast<int>(objects.size());
}

EndedElements::EndedElements(const char* factory)
    : m_class(classOf(factory))
{
    ownFinalize = m_class->finalize;
    m_class->finalize = noteEnd;
    ended = 0;
}

EndedElements::~EndedElements()
{
    m_class->finalize = ownFinalize;
}

int EndedElements::count() const
{
    return ended;
}
