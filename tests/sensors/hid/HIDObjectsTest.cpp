#include <gtest/gtest.h>

#include "sensors/hid/HIDObjects.h"
#include "sensors/hidlibrary/LoadedHIDLibrary.h"

namespace airflow::sensors {
namespace {

class OwnedHIDObjectTest : public testing::Test {
protected:
    ~OwnedHIDObjectTest() override {
        EXPECT_EQ(library.liveObjects(), 0);
        EXPECT_EQ(library.record().overReleases, 0);
        EXPECT_EQ(library.record().usesAfterRelease, 0);
    }

    tests::HIDLibrary& library = tests::loadHIDLibrary(tests::hidLibraryPath(), {});
};

TEST_F(OwnedHIDObjectTest, anObjectIsReleasedWhenItsOwnerEnds) {
    {
        const OwnedHIDObject owner(library, library.makeText("text"));
        EXPECT_TRUE(owner);
        EXPECT_EQ(library.text(owner.get()), "text");
        EXPECT_EQ(library.liveObjects(), 1);
    }
    EXPECT_EQ(library.liveObjects(), 0);
}

TEST_F(OwnedHIDObjectTest, nothingIsNotReleased) {
    const OwnedHIDObject nothing;
    const OwnedHIDObject failed(library, nullptr);
    EXPECT_FALSE(nothing);
    EXPECT_FALSE(failed);
}

TEST_F(OwnedHIDObjectTest, aMovedObjectIsReleasedOnce) {
    OwnedHIDObject first(library, library.makeText("text"));
    const OwnedHIDObject second(std::move(first));
    EXPECT_EQ(library.text(second.get()), "text");
    EXPECT_EQ(library.liveObjects(), 1);
}

TEST_F(OwnedHIDObjectTest, anAssignedOwnerReleasesBothInTheEnd) {
    OwnedHIDObject owner(library, library.makeText("first"));
    owner = OwnedHIDObject(library, library.makeText("second"));
    EXPECT_EQ(library.text(owner.get()), "second");
    EXPECT_EQ(library.liveObjects(), 1);
}

TEST_F(OwnedHIDObjectTest, anOwnerMayBeAssignedToItself) {
    OwnedHIDObject owner(library, library.makeText("text"));
    OwnedHIDObject& same = owner;
    owner = std::move(same);
    EXPECT_EQ(library.text(owner.get()), "text");
}

TEST_F(OwnedHIDObjectTest, aRetainedObjectOutlivesItsFirstOwner) {
    OwnedHIDObject first(library, library.makeText("text"));
    const auto second = OwnedHIDObject::retaining(library, first.get());
    first = OwnedHIDObject();
    EXPECT_EQ(library.text(second.get()), "text");
}

}  // namespace
}  // namespace airflow::sensors
