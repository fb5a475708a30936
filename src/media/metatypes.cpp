#include "media/metatypes.h"

#include "media/psitables.h"

#include <QMetaType>

Q_DECLARE_TYPEINFO(PMT_vector_Struct, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(PMT_vector_Struct)

void registerMetaTypes()
{
    // Qt's declaration of std::vector registers the sequential-container converter along with the type.
    qRegisterMetaType<std::vector<std::uint8_t>>("std::vector<uint8_t>");
    qRegisterMetaType<std::vector<std::uint32_t>>("std::vector<uint32_t>");
    qRegisterMetaType<PMT_vector_Struct>("PMT_vector_Struct");
}
