// Types that cross queued connections are known under their exact names.
#include "media/metatypes.h"

#include "media/psitables.h"
#include "mediatest.h"

#include <QMetaType>

namespace {

TEST(MetaTypes, AreRegisteredUnderTheirNames)
{
    registerMetaTypes();
    for (const char* name : {"std::vector<uint8_t>", "std::vector<uint32_t>", "PMT_vector_Struct"})
        EXPECT_TRUE(QMetaType::isRegistered(QMetaType::type(name))) << name;
}

TEST(MetaTypes, AQueuedPmtKeepsItsNumberAndBytes)
{
    registerMetaTypes();
    const int type = QMetaType::type("PMT_vector_Struct");
    const PMT_vector_Struct original{3401, {0x02, 0xB0, 0x12}};
    auto* copy = static_cast<PMT_vector_Struct*>(QMetaType::create(type, &original));
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->program_number, 3401);
    EXPECT_EQ(copy->data, original.data);
    EXPECT_NE(copy->data.data(), original.data.data());
    QMetaType::destroy(type, copy);
}

TEST(MetaTypes, APmtIsMovableConstructibleAndDestructible)
{
    registerMetaTypes();
    const QMetaType::TypeFlags flags = QMetaType::typeFlags(QMetaType::type("PMT_vector_Struct"));
    EXPECT_TRUE(flags.testFlag(QMetaType::MovableType));
    EXPECT_TRUE(flags.testFlag(QMetaType::NeedsConstruction));
    EXPECT_TRUE(flags.testFlag(QMetaType::NeedsDestruction));
}

TEST(MetaTypes, NumberListsComeWithTheirConverterToASequence)
{
    registerMetaTypes();
    const int sequence = qMetaTypeId<QtMetaTypePrivate::QSequentialIterableImpl>();
    for (const char* name : {"std::vector<uint8_t>", "std::vector<uint32_t>"})
        EXPECT_TRUE(QMetaType::hasRegisteredConverterFunction(QMetaType::type(name), sequence)) << name;
}

} // namespace
