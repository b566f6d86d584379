// The class factory manager's lookups over bundles made in code on the stand-in platform.
#include "host/osp/OSPSubsystem.h"
#include "host/osp/PreferencesService.h"
#include "plugin/OspClassFactoryManager.h"

#include <Poco/Util/MapConfiguration.h>
#include <boost/make_shared.hpp>
#include <gtest/gtest.h>

namespace tarn {
namespace {

using Poco::OSP::Bundle;

struct NamedFactory : IQnClassFactory {
    NamedFactory(std::string name, std::string kind) : className(std::move(name)), category(std::move(kind)) {}
    std::string getCategoryName() const override { return category; }
    std::string getClassName() const override { return className; }
    std::string className, category;
};

using Declarations = std::vector<std::pair<std::string, std::string>>;

// Registers one factory per (class, category) on start, as a module's activator would, counting
// its starts; or fails to start.
class Activator : public Poco::OSP::BundleActivator {
public:
    Activator(Declarations factories, int* starts) : factories_(std::move(factories)), starts_(starts) {}
    void start(Poco::OSP::BundleContext::Ptr context) override
    {
        if (!starts_)
            throw Poco::IOException("no device");
        ++*starts_;
        OspClassFactoryManager manager(context);
        for (const auto& [className, category] : factories_)
            manager.registerClassFactory<NamedFactory>(boost::make_shared<NamedFactory>(className, category));
    }
    void stop(Poco::OSP::BundleContext::Ptr) override {}

private:
    Declarations factories_;
    int* starts_;
};

class ClassFactoryManagerTest : public ::testing::Test {
protected:
    // A bundle whose properties declare "services" and each identifier's class and category.
    Bundle::Ptr install(const std::string& name, const std::string& services,
                        const std::map<std::string, std::pair<std::string, std::string>>& declared,
                        Declarations registers = {}, bool fails = false)
    {
        Poco::AutoPtr<Poco::Util::MapConfiguration> properties(new Poco::Util::MapConfiguration);
        if (!services.empty())
            properties->setString("services", services);
        for (const auto& [identifier, classAndCategory] : declared) {
            properties->setString(identifier + ".classname", classAndCategory.first);
            properties->setString(identifier + ".category", classAndCategory.second);
        }
        int* counter = fails ? nullptr : &starts;
        return platform.bundleLoader().installBundle(name, properties,
                                                     [registers, counter] { return new Activator(registers, counter); });
    }

    int starts = 0;
    Poco::OSP::OSPSubsystem platform;
    OspClassFactoryManager manager{platform};
};

TEST_F(ClassFactoryManagerTest, SplitsServicesAtCommasAndColonsAndKeepsDeclarationOrder)
{
    install("parsers", "a,,b:c", {{"a", {"A", "parser"}}, {"b", {"B", "parser"}}, {"c", {"C", "other"}}});
    install("more", "d::a", {{"d", {"D", "parser"}}, {"a", {"A2", "parser"}}});
    install("silent", "", {{"e", {"E", "parser"}}});

    EXPECT_EQ((std::vector<std::string>{"A", "B", "D", "A2"}), manager.getClassNames("parser"));
    EXPECT_EQ(std::vector<std::string>{"C"}, manager.getClassNames("other"));
    EXPECT_TRUE(manager.getClassNames("Parser").empty());
    EXPECT_EQ(0, starts) << "listing class names starts no bundle";
}

TEST_F(ClassFactoryManagerTest, GetClassFactoryStartsTheDeclaringBundleOnceUntilItStops)
{
    Bundle::Ptr bundle = install("parsers", "x:y", {{"x", {"com.example.Other", "parser"}},
                                                    {"y", {"com.example.Parser", "parser"}}},
                                 {{"com.example.Parser", "parser"}});

    EXPECT_FALSE(manager.getClassFactory("com.example.parser")) << "class names compare with case";
    EXPECT_EQ(0, starts);

    ::testing::internal::CaptureStdout();
    auto factory = manager.getClassFactory("com.example.Parser");
    auto again = manager.getClassFactory("com.example.Parser");
    EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
    ASSERT_TRUE(factory);
    EXPECT_EQ(factory, again) << "the registry's factory, not a copy";
    EXPECT_EQ(1, starts) << "an active bundle is not started again";
    EXPECT_EQ(Bundle::BUNDLE_ACTIVE, bundle->state());
    bundle->stop();
    bundle->stop();
    EXPECT_EQ(Bundle::BUNDLE_RESOLVED, bundle->state());
    EXPECT_EQ(nullptr, bundle->activator()) << "a stopped bundle lets its activator go";
}

TEST_F(ClassFactoryManagerTest, ReportsABundleThatFailsToStartAndGoesOn)
{
    install("broken", "p", {{"p", {"com.example.Parser", "parser"}}}, {}, true);
    install("working", "q", {{"q", {"com.example.Working", "parser"}}},
            {{"com.example.Working", "parser"}});

    ::testing::internal::CaptureStdout();
    const auto factories = manager.getClassFactories("parser");
    EXPECT_EQ("Failed to start bundle broken: I/O error: no device\n", ::testing::internal::GetCapturedStdout());
    ASSERT_EQ(1u, factories.size());
    EXPECT_EQ("com.example.Working", factories[0]->getClassName());

    // Declared, but its bundle never registered it: nothing carries the name.
    ::testing::internal::CaptureStdout();
    EXPECT_THROW(manager.getClassFactory("com.example.Parser"), Poco::NullPointerException);
    ::testing::internal::GetCapturedStdout();
}

// A service under a factory's or the preferences' name that is something else is refused, not
// used as what it is not.
TEST_F(ClassFactoryManagerTest, ReadsPreferencesAndRefusesServicesOfTheWrongType)
{
    install("impostor", "p", {{"p", {"com.example.Prefs", "parser"}}});
    auto& registry = platform.serviceRegistry();
    registry.registerService("com.example.Prefs", new Poco::OSP::PreferencesService(new Poco::Util::MapConfiguration), {});
    EXPECT_THROW(manager.getClassFactory("com.example.Prefs"), Poco::BadCastException);

    auto preferences = registry.findByName(Poco::OSP::PreferencesService::SERVICE_NAME)->instance().cast<Poco::OSP::PreferencesService>();
    preferences->configuration()->setString("debugger.sourcePath", "/src");
    EXPECT_EQ("/src", manager.getPreference("debugger.sourcePath"));
    EXPECT_EQ("", manager.getPreference("debugger.missing"));

    registry.unregisterService(Poco::OSP::PreferencesService::SERVICE_NAME);
    registry.registerService(Poco::OSP::PreferencesService::SERVICE_NAME, new Poco::OSP::PreferencesService(nullptr), {});
    EXPECT_THROW(manager.getPreference("debugger.sourcePath"), Poco::NullPointerException);
    registry.unregisterService(Poco::OSP::PreferencesService::SERVICE_NAME);
    EXPECT_THROW(manager.getPreference("debugger.sourcePath"), Poco::NullPointerException);
    registry.registerService(Poco::OSP::PreferencesService::SERVICE_NAME,
                             new OspService<IQnClassFactory>(boost::make_shared<NamedFactory>("n", "c")), {});
    EXPECT_THROW(manager.getPreference("debugger.sourcePath"), Poco::BadCastException);
}

TEST(ServiceRegistry, MatchesQueriesOfPropertiesAndName)
{
    Poco::OSP::ServiceRegistry registry;
    Poco::OSP::Properties red;
    red.set("Colour", "red");
    red.set("Size", "big");
    Poco::OSP::Properties blue;
    blue.set("Colour", "blue");
    auto service = [] { return new OspService<int>(boost::make_shared<int>(1)); };
    registry.registerService("one", service(), red);
    registry.registerService("two", service(), blue);
    registry.registerService("three", service(), red);
    EXPECT_THROW(registry.registerService("two", service(), red), Poco::ExistsException);

    auto names = [&](const std::string& query) {
        std::vector<Poco::OSP::ServiceRef::Ptr> found;
        registry.find(query, found);
        std::string text;
        for (const auto& reference : found)
            text += reference->name() + " ";
        return text;
    };
    EXPECT_EQ("one three ", names("Colour==\"red\""));
    EXPECT_EQ("three ", names(" Colour == \"red\" && name==\"three\" "));
    EXPECT_EQ("", names("Colour==\"red\" && Size==\"small\""));
    for (const char* bad : {"", "Colour=\"red\"", "Colour==red", "Colour==\"red", "Colour==\"red\" ||"})
        EXPECT_THROW(names(bad), Poco::SyntaxException) << bad;
}

} // namespace
} // namespace tarn
