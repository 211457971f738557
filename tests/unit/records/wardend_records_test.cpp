#include "records/wardend_records.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "binding/serialize/serialize_traits.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using lumo::serialize::detail::IsMap;
using lumo::serialize::detail::IsRecord;
using lumo::serialize::detail::IsVector;

// Writes the wire shape of a record as enumerate visits it: "u16,str,vec<u8>,{...}", so that
// a reordered field or a changed width shows up as a different text.
struct Shape {
    std::string text;

    template <typename T>
    static std::string Of() {
        if constexpr (std::is_same_v<T, bool>) {
            return "bool";
        } else if constexpr (std::is_enum_v<T>) {
            return Of<std::underlying_type_t<T>>();
        } else if constexpr (std::is_integral_v<T>) {
            return (std::is_signed_v<T> ? "i" : "u") + std::to_string(sizeof(T) * 8);
        } else if constexpr (std::is_same_v<T, String>) {
            return "str";
        } else if constexpr (IsVector<T>::value) {
            return "vec<" + Of<typename T::value_type>() + ">";
        } else if constexpr (IsMap<T>::value) {
            return "map<" + Of<typename T::key_type>() + "," + Of<typename T::mapped_type>() + ">";
        } else {
            static_assert(IsRecord<T>::value, "a field of unknown kind");
            Shape inner;
            T value{};
            value.enumerate(inner);
            return "{" + inner.text + "}";
        }
    }

    template <typename T>
    void operator()(const T& /*field*/) {
        text += (text.empty() ? "" : ",") + Of<T>();
    }
};

template <typename T>
std::string ShapeOf() {
    const std::string braced = Shape::Of<T>();
    return braced.substr(1, braced.size() - 2);
}

const std::string kE2E =
    "{u8,vec<u32>,bool,bool,u32,u32,u16,u32,u8,u8,u8,u8,u8,u8,u8,u8,u8,u8,"
    "bool,u32}";
const std::string kSerialize = "{u32,u8,str}";
const std::string kIndex = "{vec<u16>,u16,u16,str,u16}";

TEST(WardendRecordsTest, EnumerateVisitsEveryFieldInWireOrderWithItsWidth) {
    const std::string ddsEvent =
        "u16,u16,u16,str,str,u32,u32,u8,u8,vec<u8>,u32,u32,str,"
        "map<str,str>,u8," +
        kE2E + ",u8,bool";
    const std::string someipEvent = "u16,u16,u32,u16,vec<u16>,str,u16,u32,u16,bool," + kE2E +
                                    ",vec<u8>,{str,u64,bool,vec<{str,str,bool,u64,u64,str}>}";
    const std::string ddsMethod =
        "str,str,str,str,u16,u32,u32,u8,u8,u8,u8,vec<u8>,u32,u32,u32,"
        "u32," +
        kE2E + ",u8";
    const std::string someipMethod = "u16,str,u32,u16,bool," + kE2E + ",vec<u8>,vec<u8>";
    const std::string eventRegister = "str,str,map<u16,{{" + ddsEvent + "},{" + someipEvent +
                                      "}}>,str,str,i32," + kSerialize + ",str,bool";
    const std::string methodRegister = "str,str,map<u16,{{" + ddsMethod + "},{" + someipMethod +
                                       "}}>,u16,u16,vec<str>,vec<str>,i32," + kSerialize + "," +
                                       kSerialize + ",str,vec<{u64,str}>,str,bool,bool";
    const std::string e2eEntry = "u16,u16,u16,u16,str," + kE2E;
    const struct {
        const char* name;
        std::string actual;
        std::string shape;
    } cases[] = {
        {"E2EConfigInfo", ShapeOf<E2EConfigInfo>(), kE2E.substr(1, kE2E.size() - 2)},
        {"DDSEventInfo", ShapeOf<DDSEventInfo>(), ddsEvent},
        {"SomeipEventInfo", ShapeOf<SomeipEventInfo>(), someipEvent},
        {"EventRegisterInfo", ShapeOf<EventRegisterInfo>(), eventRegister},
        {"EventInfoWithPubSub", ShapeOf<EventInfoWithPubSub>(),
         "{" + eventRegister + "},vec<str>,str,bool"},
        {"DDSMethodInfo", ShapeOf<DDSMethodInfo>(), ddsMethod},
        {"SomeipMethodInfo", ShapeOf<SomeipMethodInfo>(), someipMethod},
        {"MethodRegisterInfo", ShapeOf<MethodRegisterInfo>(), methodRegister},
        {"FieldRegisterInfo", ShapeOf<FieldRegisterInfo>(), "str,str,map<u16,str>,u16,bool,i32"},
        {"EventE2EInfo", ShapeOf<EventE2EInfo>(), e2eEntry},
        {"NodeRegisterInfo", ShapeOf<NodeRegisterInfo>(),
         "i32,str,u16,{bool},{vec<{" + e2eEntry + "}>}"},
        {"NodeInfo", ShapeOf<NodeInfo>(), "str,vec<str>,vec<str>,vec<str>,vec<str>,vec<str>,i32"},
        {"LatencySwitch", ShapeOf<LatencySwitch>(), "u8," + kIndex},
        {"LatencyQueryInfo", ShapeOf<LatencyQueryInfo>(), "u16," + kIndex},
        {"LatencyAppInfo", ShapeOf<LatencyAppInfo>(),
         "u8,str," + kIndex + ",{u8,bool,bool},{u64,u64,u64},u64"},
        {"ListenerParams", ShapeOf<ListenerParams>(), "str,u32,u32"},
        {"QuerySubEventInfoIndex", ShapeOf<QuerySubEventInfoIndex>(),
         "u16,u16,u16,u16,str,str,u16"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.actual, c.shape) << c.name;
    }
    // The application register record carries all six members behind isPub and infoType.
    EXPECT_EQ(ShapeOf<AppRegisterInfo>().rfind(
                  "bool,u8,{" + eventRegister + "},{" + methodRegister + "},", 0),
              0U);
    EXPECT_NE(ShapeOf<AppRegisterInfo>().find("map<u16,{str,u32,u32}>"), std::string::npos);
}

// The round trips compare records with ==: it must see every member, however deep.
TEST(WardendRecordsTest, EqualityOverEveryMember) {
    // The last field of a nested record is enough to make two records differ.
    EventRegisterInfo a;
    a.eventMap_[DriverType::SOMEIP].someip.pduConfig.isignals.resize(1);
    EventRegisterInfo b = a;
    EXPECT_EQ(a, b);
    b.eventMap_[DriverType::SOMEIP].someip.pduConfig.isignals[0].text = "x";
    EXPECT_NE(a, b);
    b = a;
    b.isRegister = true;
    EXPECT_NE(a, b);
    E2EConfigInfo c;
    E2EConfigInfo d;
    d.stateParam9 = 1;
    EXPECT_NE(c, d);
}

}  // namespace
