#include "VexIMLib/internal/MessageForwarding/VXIMPropertyInfo.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/VXIMPropertyNameFromSelector.h"
#include "VexIMLib/VXIMRuntimeObject.h"
#include "VexIMLib/internal/MessageForwarding/VXIMClassInfo.h"
#include "support/LogCapture.h"

namespace {

using vexim::Class;
using vexim::Selector;
using vexim::testing::LogCapture;

const Class& document() {
    static const Class& cls = Class::declare("Document", &VXIMRuntimeObject::staticClass(),
                                             {{"title", "T@\"NSString\",C,D"},
                                              {"URL", "T@\"NSURL\",&,D,N"},
                                              {"url", "T@\"NSURL\",&,D,N"},
                                              {"Rank", "Ti,D,N"},
                                              {"settings", "T@\"NSDictionary\",&,D,N"},
                                              {"set", "TB,D,N"},
                                              {"open", "TB,GisOpen,SmakeOpen:,D,N"},
                                              {"isClosed", "TB,D,N"},
                                              {"size", "TQ,R,D,N"},
                                              {"locked", "TB,R,SforceLocked:,D,N"},
                                              {"stored", "Tq,N,V_stored"},
                                              {"état", "Tq,D,N"},
                                              {"author", "T@\"VXIMUser\",W,D,N"},
                                              {"untyped", "D,N"},
                                              {"[odd", "TB,D,N"}});
    return cls;
}

const Class& letter() {
    static const Class& cls = Class::declare("Letter", &document(), {{"uRL", "T@,D"}});
    return cls;
}

std::string orNil(const std::optional<std::string>& text) { return text.value_or("nil"); }

TEST(PropertyNameFromSelector, MapsAccessorsToDeclaredProperties) {
    const struct {
        const char* why;
        const Class& cls;
        const char* selector;
        const char* name;
    } cases[] = {
        {"a getter", document(), "title", "title"},
        {"a setter", document(), "setTitle:", "title"},
        {"an inherited property", letter(), "setTitle:", "title"},
        {"a second look with an upper-case letter", document(), "setURL:", "URL"},
        {"the first look wins where there are both", letter(), "setURL:", "uRL"},
        {"an ordinary one beside it", document(), "setUrl:", "url"},
        {"a getter that starts with an upper-case letter", document(), "Rank", "Rank"},
        {"its setter", document(), "setRank:", "Rank"},
        {"a getter is retried with an upper-case letter too", document(), "rank", "Rank"},
        {"a getter that begins with set is mangled", document(), "settings", "nil"},
        {"its setter is not", document(), "setSettings:", "settings"},
        {"nothing but the prefix", document(), "set", "nil"},
        {"a prefix and a colon", document(), "set:", "nil"},
        {"the last character goes, whatever it is", document(), "setTitleX", "title"},
        {"a lower-case letter is shifted all the same", document(), "settitle:", "nil"},
        {"what comes after the letters has no case", document(), "{odd", "nil"},
        {"only ASCII letters have a case", document(), "setÉtat:", "nil"},
        {"though the getter is found", document(), "état", "état"},
        {"a custom getter is not known here", document(), "isOpen", "nil"},
        {"unless a property bears that very name", document(), "isClosed", "isClosed"},
        {"a property that is not dynamic has a name as well", document(), "setStored:", "stored"},
        {"no such property", document(), "foo", "nil"},
        {"two arguments", document(), "setTitle:url:", "nil"},
        {"the empty name", document(), "", "nil"},
    };
    for (const auto& [why, cls, selector, name] : cases) {
        EXPECT_EQ(orNil(VXIMPropertyNameFromSelector(cls, selector)), name)
            << why << ": " << selector;
    }
    EXPECT_EQ(VXIMPropertyNameFromSelector(document(), Selector()), std::nullopt);
}

/// A record as one line.
std::string describe(const std::shared_ptr<VXIMPropertyInfo>& info) {
    if (!info) return "nil";
    return info->name() + " " + orNil(info->typeEncoding()) + (info->isAtomic() ? " atomic" : "") +
           " policy " + std::to_string(static_cast<std::int64_t>(info->associationPolicy())) +
           " get " + info->getterSelector().text() + " set " +
           (info->setterSelector().isNull() ? "nil" : info->setterSelector().text());
}

TEST(PropertyInfo, ReadsItsAttributes) {
    const std::pair<const char*, const char*> cases[] = {
        {"title", "title @\"NSString\" atomic policy 4 get title set setTitle:"},
        {"URL", "URL @\"NSURL\" policy 3 get URL set setURL:"},
        {"author", "author @\"VXIMUser\" policy 2 get author set setAuthor:"},
        {"open", "open B policy 1 get isOpen set makeOpen:"},
        {"size", "size Q policy 1 get size set nil"},
        {"locked", "locked B policy 1 get locked set forceLocked:"},
        {"état", "état q policy 1 get état set setÉtat:"},
        {"untyped", "untyped nil policy 1 get untyped set setUntyped:"},
        {"stored", "nil"},
        {"missing", "nil"},
    };
    for (const auto& [name, expected] : cases)
        EXPECT_EQ(describe(VXIMPropertyInfo::initWithClass(letter(), name)), expected);
    EXPECT_EQ(VXIMPropertyInfo::initWithClass(letter(), std::nullopt), nullptr);
    EXPECT_EQ(&VXIMPropertyInfo::initWithClass(letter(), "title")->cls(), &letter())
        << "the class that was asked about";
}

TEST(PropertyInfo, LogsAttributesThatItDoesNotKnowAndLetsTheLastPolicyWin) {
    static const Class& cls =
        Class::declare("OddlyDeclared", &VXIMRuntimeObject::staticClass(),
                       {{"odd", "Ti,E,C,&,?x,D,N,b"}, {"copied", "T@,&,W,C,D,N"}});
    LogCapture log;
    EXPECT_EQ(describe(VXIMPropertyInfo::initWithClass(cls, "odd")),
              "odd i policy 3 get odd set setOdd:");
    EXPECT_EQ(describe(VXIMPropertyInfo::initWithClass(cls, "copied")),
              "copied @ policy 4 get copied set setCopied:");
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"VXIMRuntimeObject: unsupported property attribute: E",
                                        "VXIMRuntimeObject: unsupported property attribute: ?",
                                        "VXIMRuntimeObject: unsupported property attribute: b"}));
}

TEST(PropertyInfo, FindsABackingInstanceVariable) {
    static const Class& base =
        Class::declare("BackedBase", &VXIMRuntimeObject::staticClass(),
                       {{"a", "Tq,N,Vmine"}, {"b", "Tq,N,Vmine"}, {"e", "Tq,N,Vnowhere"}},
                       {{"mine", "q"}, {"_f", "q"}});
    static const Class& middle = Class::declare("BackedMiddle", &base);
    static const Class& cls =
        Class::declare("Backed", &middle,
                       {{"a", "Tq,D,N,Vown"},
                        {"b", "Tq,D,N"},
                        {"c", "Tq,D,N"},
                        {"d", "Tq,D,N,Vgone"},
                        {"e", "Tq,D,N"},
                        {"f", "Tq,D,N"},
                        {"g", "Tq,D,N"}},
                       {{"own", "q"}, {"_b", "q"}, {"_c", "q"}, {"c", "q"}, {"d", "q"}});
    const struct {
        const char* why;
        const char* name;
        const char* variable;
        const char* owner;
    } cases[] = {
        {"the property's own, before a superclass's", "a", "own", "Backed"},
        {"a superclass's property of that name, as the nearest superclass sees it", "b", "mine",
         "BackedMiddle"},
        {"an underscore, before the plain name", "c", "_c", "Backed"},
        {"the plain name, when what the property names does not exist", "d", "d", "Backed"},
        {"a superclass's name that does not exist", "e", nullptr, nullptr},
        {"an inherited variable counts as the class's", "f", "_f", "Backed"},
        {"none", "g", nullptr, nullptr},
    };
    for (const auto& [why, name, variable, owner] : cases) {
        SCOPED_TRACE(why);
        LogCapture log;
        const auto info = VXIMPropertyInfo::initWithClass(cls, name);
        if (!variable) {
            EXPECT_EQ(info->ivar(), nullptr);
            EXPECT_TRUE(log.lines().empty());
            continue;
        }
        ASSERT_NE(info->ivar(), nullptr);
        EXPECT_EQ(info->ivar()->name(), variable);
        EXPECT_EQ(log.lines(),
                  std::vector<std::string>{"Warning: Value will be stored in ivar, because ivar `" +
                                           std::string(variable) + "` decleared for property `" +
                                           name + "` was found on class `" + owner + "`."});
    }
}

TEST(PropertyInfo, HasOneLock) {
    const auto info = VXIMPropertyInfo::initWithClass(letter(), "title");
    std::vector<VXIMNamedLock*> locks(4);
    {
        std::vector<std::jthread> threads;
        for (auto& lock : locks)
            threads.emplace_back([&info, &lock] { lock = &info->valueAccesslock(); });
    }
    for (const auto* lock : locks) EXPECT_EQ(lock, locks.front());
    EXPECT_EQ(locks.front()->name(),
              "com.vexora.clouddata.object.subclass.Letter.title.valueAccessLock");
}

TEST(ClassInfo, RemembersWhatItFoundAndNothingElse) {
    const auto info = VXIMClassInfo::subclassInfoWithClass(document());
    for (const char* unknown : {"foo", "stored", "isOpen", "makeOpen:", "settings"}) {
        EXPECT_EQ(info->propertyInfoForSelector(unknown), nullptr) << unknown;
        EXPECT_EQ(info->forwardMethodSignatureForSelector(unknown), nullptr) << unknown;
    }
    EXPECT_TRUE(info->propertyNamesKeyedBySeletor().empty());
    EXPECT_TRUE(info->propertyInfos().empty());
    EXPECT_TRUE(info->methodSignatures().empty());

    const auto open = info->propertyInfoForSelector("setOpen:");
    ASSERT_NE(open, nullptr);
    EXPECT_EQ(info->propertyNamesKeyedBySeletor(),
              (VXIMClassInfo::Map<std::string>{
                  {"setOpen:", "open"}, {"isOpen", "open"}, {"makeOpen:", "open"}}));
    EXPECT_EQ(info->propertyInfoForSelector("isOpen"), open)
        << "custom names work once the property was reached";
    EXPECT_EQ(info->propertyInfoForSelector("makeOpen:"), open);
}

TEST(ClassInfo, SynthesisesSignatures) {
    const struct {
        const char* why;
        const char* selector;
        const char* types;
    } cases[] = {
        {"a setter of objects, without their class", "setAuthor:", "v@:@"},
        {"a getter of objects", "author", "@@:"},
        {"a getter of 64 bits", "état", "q@:"},
        {"its setter, known since the getter", "setÉtat:", "v@:q"},
        {"a read-only property's setter form is a getter", "setSize:", "Q@:"},
        {"the plain setter form beside a custom setter is a getter", "setOpen:", "B@:"},
        {"the custom setter", "makeOpen:", "v@:B"},
        {"a missing type, as it prints", "setUntyped:", "v@:(null)"},
    };
    const auto info = VXIMClassInfo::subclassInfoWithClass(document());
    for (const auto& [why, selector, types] : cases) {
        const auto signature = info->forwardMethodSignatureForSelector(selector);
        ASSERT_NE(signature, nullptr) << why;
        EXPECT_TRUE(*signature == *vexim::MethodSignature::signatureWithObjCTypes(types)) << why;
        EXPECT_EQ(info->forwardMethodSignatureForSelector(selector), signature)
            << why << ", made once";
    }
}

TEST(ClassInfo, GivesEveryThreadTheSameRecord) {
    const auto info = VXIMClassInfo::subclassInfoWithClass(letter());
    std::vector<std::shared_ptr<VXIMPropertyInfo>> records(4);
    {
        std::vector<std::jthread> threads;
        for (auto& record : records) {
            threads.emplace_back([&info, &record] {
                info->forwardMethodSignatureForSelector("setTitle:");
                record = info->propertyInfoForSelector("title");
            });
        }
    }
    for (const auto& record : records) EXPECT_EQ(record, records.front());
}

}  // namespace
