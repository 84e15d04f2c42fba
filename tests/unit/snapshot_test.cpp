#include "config/snapshot.h"

#include "config/device_value.h"
#include "daemon_in_process.h"
#include "scene/device_values.h"

#include <memory>

using testing::ElementsAre;

struct FreeSnapshot {
    void operator()(GetDev *getDev) const
    {
        freeGetDevice(getDev);
    }
};
using Snapshot = std::unique_ptr<GetDev, FreeSnapshot>;

static Snapshot parse(const std::string &text)
{
    return Snapshot(setGetDevice(text.c_str()));
}

static const char *const WHOLE_CHANNEL =
    R"json({"device":[{"uid":7,"battery":80,"code":"01010167","lasttampertime":"t","channel":[{"basicvalue":1,
    "Dim_ON_Value":2,"mainscene":3,"tampernotify":4,"lowbattnotify":5,"chid":6,"ctrltype":7,"functype":8,
    "security":9,"sensorstate":10,"sensorunit":11,"sensorvalue":12,"lastbeattime":"b","name":"Lamp (2)",
    "meter":{"watt":1,"current":2,"kwh":3,"pf":4,"voltage":5},
    "switch_color":{"comp_mask1":1,"comp_mask2":2,"comp_value":[{"comp_id":1,"value":300},{"comp_id":2}]}}]}]})json";

TEST(Snapshot, HasEveryMemberOfADeviceAndItsChannels)
{
    const Snapshot snapshot = parse(WHOLE_CHANNEL);
    const GetDev_dev *device = searchDeviceFromGetDev(snapshot.get(), 7);
    ASSERT_NE(device, nullptr);
    EXPECT_EQ(device->battery, 80);
    EXPECT_STREQ(device->code, "01010167");
    EXPECT_STREQ(device->lasttampertime, "t");
    const GetDev_channel *channel = searchChannelFromGetDev(device, 6);
    ASSERT_NE(channel, nullptr);
    EXPECT_THAT(
        (std::vector<Integer>{channel->basicvalue, channel->Dim_ON_Value, channel->mainscene,
                              channel->tampernotify, channel->lowbattnotify, channel->chid,
                              channel->ctrltype, channel->functype, channel->security,
                              channel->sensorstate, channel->sensorunit, channel->sensorvalue}),
        ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12));
    EXPECT_STREQ(channel->lastbeattime, "b");
    EXPECT_STREQ(channel->name, "Lamp");
    EXPECT_EQ(takeText(meterToJson(channel->meter)),
              R"({"current":2,"kwh":3,"pf":4,"voltage":5,"watt":1})");
    EXPECT_EQ(
        takeText(switchcolorToJson(channel->switch_color)),
        R"({"comp_mask1":1,"comp_mask2":2,"comp_value":[{"comp_id":1,"value":44},{"comp_id":2,"value":0},)"
        R"({"comp_id":0,"value":0},{"comp_id":0,"value":0},{"comp_id":0,"value":0}]})");
}

TEST(Snapshot, OfAnythingButAnObjectIsNone)
{
    EXPECT_EQ(setGetDevice(nullptr), nullptr);
    EXPECT_EQ(setGetDevice("{"), nullptr);
    EXPECT_EQ(setGetDevice("[]"), nullptr);
    EXPECT_THAT(logTexts(),
                ElementsAre("jsonStr is NULL\n", testing::StartsWith("error: on line 1: "),
                            "error: root is not an object\n"));
}

TEST(Snapshot, WithoutDevicesIsEmpty)
{
    const Snapshot snapshot = parse("{}");
    ASSERT_NE(snapshot, nullptr);
    EXPECT_TRUE(listEmpty(&snapshot->devices));
    EXPECT_EQ(logged("device does not exist\n"), 1u);
}

TEST(Snapshot, KeepsADeviceWithoutChannels)
{
    const Snapshot snapshot = parse(R"({"device":[{"uid":7}]})");
    const GetDev_dev *device = searchDeviceFromGetDev(snapshot.get(), 7);
    ASSERT_NE(device, nullptr);
    EXPECT_TRUE(listEmpty(&device->channels));
    EXPECT_EQ(logged("channel does not exist\n"), 1u);
    EXPECT_EQ(logged("lasttampertime is not a string\n"), 1u);
    EXPECT_EQ(logged("code is not a string\n"), 1u);
}

TEST(Snapshot, EndsAtTheFirstElementThatIsNoObject)
{
    const Snapshot snapshot =
        parse(R"({"device":[{"uid":1,"channel":[{"chid":1},5,{"chid":2}]},"x",{"uid":2}]})");
    EXPECT_EQ(getListObjNum(&snapshot->devices), 1);
    EXPECT_EQ(getListObjNum(&searchDeviceFromGetDev(snapshot.get(), 1)->channels), 1);
    EXPECT_EQ(logged("data 2 is not a string\n"), 2u);
    EXPECT_EQ(logged("lastbeattime is not a string\n"), 1u);
}

TEST(Snapshot, KeepsANameThatBeginsWithAParenthesis)
{
    const Snapshot snapshot = parse(
        R"json({"device":[{"uid":1,"channel":[{"chid":1,"name":"(x) y"},{"chid":2,"name":"ab(x)"}]}]})json");
    const GetDev_dev *device = searchDeviceFromGetDev(snapshot.get(), 1);
    EXPECT_STREQ(searchChannelFromGetDev(device, 1)->name, "(x) y");
    EXPECT_STREQ(searchChannelFromGetDev(device, 2)->name, "a");
}

TEST(Snapshot, CutsTextsToTheirFields)
{
    const std::string longText(500, 'x');
    const Snapshot snapshot =
        parse(R"({"device":[{"uid":1,"code":")" + longText + R"(","lasttampertime":")" + longText +
              R"(","channel":[{"chid":1,"name":")" + longText + R"(","lastbeattime":")" + longText +
              R"("}]}]})");
    const GetDev_dev *device = searchDeviceFromGetDev(snapshot.get(), 1);
    EXPECT_EQ(device->code, std::string(127, 'x'));
    EXPECT_EQ(searchChannelFromGetDev(device, 1)->name, std::string(127, 'x'));
}

TEST(Snapshot, CutsTheTimesToTheirFieldsAndSaysSo)
{
    const std::string tamper(128, 't');
    const std::string beat(500, 'b');
    const Snapshot snapshot =
        parse(R"({"device":[{"uid":1,"code":"c","lasttampertime":")" + tamper +
              R"(","channel":[{"chid":2,"lastbeattime":")" + beat + R"("}]}]})");
    const GetDev_dev *device = FIRST_ELEMENT(GetDev_dev, node, &snapshot->devices);
    EXPECT_EQ(device->lasttampertime, std::string(127, 't'));
    EXPECT_EQ(FIRST_ELEMENT(GetDev_channel, node, &device->channels)->lastbeattime,
              std::string(127, 'b'));
    EXPECT_EQ(device->uid, 1);
    EXPECT_EQ(logLines(), (std::vector<LogLine>{
                              {6, "setGetDevice_device", "text is cut to 127 bytes\n"},
                              {6, "setGetDevice_device_channel", "text is cut to 127 bytes\n"}}));
}

TEST(Snapshot, KeepsTextsWholeThatFit)
{
    const std::string longest(127, 'x');
    const Snapshot snapshot =
        parse(R"({"device":[{"uid":1,"code":")" + longest + R"(","lasttampertime":")" + longest +
              R"(","channel":[{"chid":2,"name":")" + longest + R"(","lastbeattime":")" + longest +
              R"("}]}]})");
    const GetDev_dev *device = FIRST_ELEMENT(GetDev_dev, node, &snapshot->devices);
    const GetDev_channel *channel = FIRST_ELEMENT(GetDev_channel, node, &device->channels);
    for (const char *text :
         {device->code, device->lasttampertime, channel->name, channel->lastbeattime})
        EXPECT_EQ(text, longest);
    EXPECT_TRUE(logLines().empty());
}

TEST(Snapshot, NeverCutsACharacterInTwo)
{
    const std::string text = std::string(126, 'x') + "ホ";  // three bytes, of which one would fit
    const Snapshot snapshot = parse(
        R"({"device":[{"uid":1,"code":")" + text + R"(","lasttampertime":")" + text +
        R"(","channel":[{"chid":2,"name":")" + text + R"(","lastbeattime":")" + text + R"("}]}]})");
    const GetDev_dev *device = FIRST_ELEMENT(GetDev_dev, node, &snapshot->devices);
    const GetDev_channel *channel = FIRST_ELEMENT(GetDev_channel, node, &device->channels);
    for (const char *field :
         {device->code, device->lasttampertime, channel->name, channel->lastbeattime})
        EXPECT_EQ(field, std::string(126, 'x'));
}

TEST(Snapshot, DropsTheWholeCharacterBeforeAParenthesis)
{
    const Snapshot snapshot = parse(R"json({"device":[{"uid":1,"channel":[{"chid":1,"name":"ホ(x)"},
        {"chid":2,"name":"居ホ(x)"},{"chid":3,"name":"é(x)"},{"chid":4,"name":"💡💡(x)"}]}]})json");
    const GetDev_dev *device = FIRST_ELEMENT(GetDev_dev, node, &snapshot->devices);
    EXPECT_STREQ(searchChannelFromGetDev(device, 1)->name, "");
    EXPECT_STREQ(searchChannelFromGetDev(device, 2)->name, "居");
    EXPECT_STREQ(searchChannelFromGetDev(device, 3)->name, "");
    EXPECT_STREQ(searchChannelFromGetDev(device, 4)->name, "💡");
}

TEST(ColourComponents, AreThoseOfTheLastChannelWithAColourAlone)
{
    parse(R"({"device":[{"uid":1,"channel":[
        {"chid":1,"switch_color":{"comp_value":[{"comp_id":1,"value":11},{"comp_id":2,"value":12},
            {"comp_id":3,"value":13},{"comp_id":4,"value":14},{"comp_id":5,"value":15},
            {"comp_id":6,"value":16}]}},{"chid":2}]}]})");
    EXPECT_THAT(comp_value_uid, ElementsAre(1, 2, 3, 4, 5));  // a sixth has no slot
    EXPECT_THAT(comp_value_color_val, ElementsAre(11, 12, 13, 14, 15));
    parse(R"({"device":[{"uid":1,"channel":[
        {"chid":1,"switch_color":{"comp_value":[{"comp_id":7,"value":17}]}},
        {"chid":2,"switch_color":{"comp_value":[{"value":18},{"comp_id":8},5]}}]}]})");
    EXPECT_THAT(comp_value_uid, ElementsAre(0, 8, 0, 0, 0));
    EXPECT_THAT(comp_value_color_val, ElementsAre(18, 0, 0, 0, 0));
    parse(R"({"device":[{"uid":1,"channel":[{"chid":1,"switch_color":{}}]}]})");
    EXPECT_THAT(comp_value_uid, testing::Each(0));
    EXPECT_THAT(comp_value_color_val, testing::Each(0));
}

TEST(SnapshotSearch, SaysWhatItDidNotFind)
{
    const Snapshot snapshot = parse(R"({"device":[{"uid":1,"channel":[]}]})");
    forgetLog();
    EXPECT_EQ(searchDeviceFromGetDev(nullptr, 1), nullptr);
    EXPECT_EQ(searchChannelFromGetDev(nullptr, 1), nullptr);
    EXPECT_EQ(searchDeviceFromGetDev(snapshot.get(), 2), nullptr);
    EXPECT_EQ(searchChannelFromGetDev(searchDeviceFromGetDev(snapshot.get(), 1), 3), nullptr);
    EXPECT_THAT(logTexts(),
                ElementsAre("searchDeviceFromGetDev(), getDev == NULL\n", "device is NULL\n",
                            "not found gid 2\n", "found gid 1\n", "not found chID 3\n"));
}

TEST(CopiedDevice, LeavesOutWhatARunningMacroDoesNotNeed)
{
    const Snapshot snapshot = parse(WHOLE_CHANNEL);
    GetDev_dev *copy = copyGetDev_dev(searchDeviceFromGetDev(snapshot.get(), 7));
    EXPECT_EQ(copy->battery, 80);
    EXPECT_STREQ(copy->code, "01010167");
    const GetDev_channel *channel = searchChannelFromGetDev(copy, 6);
    EXPECT_THAT((std::vector<Integer>{channel->basicvalue, channel->Dim_ON_Value, channel->ctrltype,
                                      channel->functype, channel->sensorstate, channel->sensorunit,
                                      channel->sensorvalue}),
                ElementsAre(1, 2, 7, 8, 10, 11, 12));
    EXPECT_THAT((std::vector<Integer>{channel->mainscene, channel->tampernotify,
                                      channel->lowbattnotify, channel->security}),
                ElementsAre(0, 0, 0, 0));
    EXPECT_EQ(channel->switch_color, nullptr);
    EXPECT_EQ(channel->meter->watt, 1);
    EXPECT_STREQ(channel->name, "Lamp");
    EXPECT_STREQ(channel->lastbeattime, "b");
    freeGetDevice_dev(copy);
}

TEST(CopiesAndFrees, LogNullPointers)
{
    EXPECT_EQ(copyGetDev_dev_channel(nullptr), nullptr);
    EXPECT_EQ(copyGetDev_dev_channel_meter(nullptr), nullptr);
    freeGetDevice(nullptr);
    freeGetDevice_dev(nullptr);
    freeGetDevice_dev_channel(nullptr);
    EXPECT_THAT(logTexts(),
                ElementsAre("5. channel is NULL\n", "4. channel is NULL\n", "getDev is NULL\n",
                            "getDev_dev is NULL\n", "getDev_dev_ch is NULL\n"));
}

TEST(SnapshotParse, IsWholeOrNoneWhenMemoryRunsOut)
{
    int refused = 0;
    for (int n = 1; n < 10; ++n) {  // the leak checker looks at what is left
        failAllocation(n);
        const Snapshot snapshot(setGetDevice(WHOLE_CHANNEL));
        failAllocation(0);
        refused += snapshot ? 0 : 1;
    }
    EXPECT_EQ(refused, 5);  // the root, the device, its channel, the meter and the colour
}

TEST(CopiedDevice, IsWholeOrNoneWhenMemoryRunsOut)
{
    const Snapshot snapshot = parse(WHOLE_CHANNEL);
    int refused = 0;
    for (int n = 1; n < 10; ++n) {
        failAllocation(n);
        GetDev_dev *copy = copyGetDev_dev(searchDeviceFromGetDev(snapshot.get(), 7));
        failAllocation(0);
        if (copy)
            freeGetDevice_dev(copy);
        else
            ++refused;
    }
    EXPECT_EQ(refused, 3);  // the device, its channel and the meter
}

TEST(SnapshotParse, LogsInTheNameOfItsLevels)
{
    parse(R"({"device":[{"uid":1,"channel":[{"chid":"1","functype":1.5}]},{"uid":2}]})");
    const std::string device = "setGetDevice_device";
    EXPECT_THAT(logLines(), testing::IsSupersetOf(
                                {LogLine{6, device + "_channel", "lastbeattime is not a string\n"},
                                 LogLine{6, device, "lasttampertime is not a string\n"},
                                 LogLine{6, device, "code is not a string\n"},
                                 LogLine{6, device, "channel does not exist\n"}}));
}

class SnapshotRefresh : public OutboundOnItsOwnBus {};

TEST_F(SnapshotRefresh, AsksForAllDevicesAndReplacesTheSnapshot)
{
    sdk.set(support::device(5, 1, support::SWITCH));
    apr_pool_t *pool = nullptr;
    apr_pool_create(&pool, nullptr);
    EXPECT_FALSE(snapshotHasDevices());
    updateAllDev(pool);
    EXPECT_TRUE(snapshotHasDevices());
    EXPECT_TRUE(sdk.heard(R"({"control":{"cmd":"getdevice","uid":256}})"));
    sdk.behave("getdevice", 256, support::Answer::saying("no JSON"));
    updateAllDev(pool);
    EXPECT_FALSE(snapshotHasDevices());  // the old one was freed first
    sdk.behave("getdevice", 256, support::Answer::asUsual());
    updateAllDev(pool);
    EXPECT_TRUE(snapshotHasDevices());
    sdk.leave();
    updateAllDev(pool);
    EXPECT_FALSE(snapshotHasDevices());
    apr_pool_destroy(pool);
}

class ARestoringScene : public OutboundOnItsOwnBus {
protected:
    Scene *prepare(Integer mode)
    {
        sdk.set(support::device(5, 1, support::SWITCH, 255));
        sdk.set(support::device(6, 1, support::TEMPERATURE, 1));
        sdk.setSensorValue(6, 1, 215);
        const Value text(
            R"({"comps":[{"target":{"dev":5,"ch":1},"value":7},{"target":{"dev":6,"ch":1},"value":7},
            {"target":{"dev":9,"ch":1},"value":7},{"target":{"dev":5,"ch":2},"value":7}],"buildinSiren":{"siren_type":4}})");
        Scene *scene = setNewScene(text);
        apr_pool_t *pool = nullptr;
        apr_pool_create(&pool, nullptr);
        EXPECT_EQ(storeCurrentDeviceValue(pool, scene, mode), 0);
        apr_pool_destroy(pool);
        EXPECT_EQ(scene->buildinSiren->siren_type, 0);
        return scene;
    }
    std::vector<Integer> values(Integer mode)
    {
        Scene *scene = prepare(mode);
        std::vector<Integer> result;
        for (const Comp &comp : ELEMENTS(Comp, node, &scene->comps))
            result.push_back(comp.value);
        freeScene(scene);
        return result;
    }
};

TEST_F(ARestoringScene, HoldsThePresentValuesOrOffOrOn)
{
    EXPECT_THAT(values(0), ElementsAre(255, 215, 7, 7));
    EXPECT_EQ(logged("getChannelFromGetDev_dev fails\n"), 2u);
    EXPECT_THAT(values(1), ElementsAre(0, 0, 7, 7));
    EXPECT_THAT(values(2), ElementsAre(99, 99, 7, 7));
    EXPECT_THAT(values(3), ElementsAre(7, 7, 7, 7));
}

TEST_F(ARestoringScene, OfNothingIsLogged)
{
    EXPECT_EQ(storeCurrentDeviceValue(nullptr, nullptr, 0), 0);
    EXPECT_EQ(logged("scene is NULL\n"), 1u);
}
