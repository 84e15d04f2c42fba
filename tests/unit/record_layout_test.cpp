// The order and the sizes of the records' fields, judged by the compiler.

#include "config/alarm.h"
#include "config/camera.h"
#include "config/device.h"
#include "config/event_filter.h"
#include "config/home_scene.h"
#include "config/macro.h"
#include "config/reg_device.h"
#include "config/resume.h"
#include "config/room.h"
#include "config/scene.h"
#include "config/schedule.h"
#include "config/sys_cmd.h"
#include "config/target_comp.h"
#include "config/target_name.h"
#include "config/trigger_thread.h"
#include "events/event_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <type_traits>

// From the record's first byte on, each behind the one before.
static constexpr bool ascending(std::initializer_list<size_t> offsets)
{
    return *offsets.begin() == 0 && std::adjacent_find(offsets.begin(), offsets.end(),
                                                       std::greater_equal<>()) == offsets.end();
}
static_assert(ascending({0, 8, 16}) && !ascending({8, 16}) && !ascending({0, 16, 8}) &&
              !ascending({0, 8, 8}));

#define AT(field) offsetof(Record, field)

TEST(Records, KeepTheOrderOfTheirFields)
{
    {
        using Record = ListNode;
        static_assert(ascending({AT(prev), AT(next)}));
    }
    {
        using Record = Scene;
        static_assert(ascending({AT(title), AT(icon_name), AT(icon), AT(buildinSiren), AT(comps),
                                 AT(node), AT(invisible), AT(ID)}));
    }
    {
        using Record = TargetId;
        static_assert(ascending({AT(dev), AT(if_), AT(ch)}));
    }
    {
        using Record = Comp;
        static_assert(ascending({AT(value), AT(target), AT(node)}));
    }
    {
        using Record = TARGET_Comp;
        static_assert(
            ascending({AT(position), AT(value), AT(timer), AT(seconds), AT(target), AT(node)}));
    }
    {
        using Record = Macro;
        static_assert(ascending({AT(title), AT(user_notification_message), AT(icon_name),
                                 AT(enabled_notifications), AT(sceneName), AT(enabled),
                                 AT(invisible), AT(priority), AT(duration), AT(duration_type),
                                 AT(scene), AT(triggers), AT(node)}));
    }
    {
        using Record = Trigger;
        static_assert(ascending(
            {AT(op), AT(field), AT(duration), AT(threshold), AT(dataunit), AT(target), AT(node)}));
    }
    {
        using Record = Schedule;
        static_assert(
            ascending({AT(title), AT(macro), AT(icon_name), AT(icon), AT(enabled),
                       AT(home_security_alarm), AT(repeat_type), AT(end_minute), AT(end_hour),
                       AT(weekdays), AT(start_hour), AT(end_day), AT(start_day), AT(start_minute),
                       AT(end_month), AT(start_month), AT(invisible), AT(macros), AT(node)}));
    }
    {
        using Record = Room;
        static_assert(ascending({AT(title), AT(icon_name), AT(icon), AT(camera),
                                 AT(camera_password), AT(extra_camera), AT(targets), AT(node)}));
    }
    {
        using Record = Target;
        static_assert(ascending({AT(target), AT(node)}));
    }
    {
        using Record = ExtraCamera;
        static_assert(ascending({AT(camera), AT(camera_password), AT(node)}));
    }
    {
        using Record = Camera;
        static_assert(ascending({AT(uid), AT(display), AT(password), AT(node)}));
    }
    {
        using Record = TargetName;
        static_assert(ascending({AT(key), AT(value), AT(node)}));
    }
    {
        using Record = RegDevice;
        static_assert(
            ascending({AT(app_id), AT(email), AT(password), AT(platform), AT(token), AT(username),
                       AT(ver), AT(gateway_name), AT(disable_notifications), AT(update_ts)}));
    }
    {
        using Record = RegDevices;
        static_assert(ascending({AT(device), AT(node)}));
    }
    {
        using Record = Alarm;
        static_assert(ascending({AT(duration), AT(enabled), AT(siren_type), AT(trigger_duration)}));
    }
    {
        using Record = EventFilter;
        static_assert(ascending({AT(uid), AT(channel), AT(eventCode), AT(node)}));
    }
    {
        using Record = SysCmd;
        static_assert(ascending({AT(cmd), AT(node)}));
    }
    SUCCEED();
}

TEST(Records, OfTheRunningHouseKeepTheOrderOfTheirFields)
{
    {
        using Record = ResumeScene;
        static_assert(ascending({AT(scene), AT(macroTitle), AT(enabled_notifications),
                                 AT(triggerFunctionType), AT(node)}));
    }
    {
        using Record = ResumeSchedule;
        static_assert(ascending({AT(scene), AT(title), AT(node)}));
    }
    {
        using Record = HomeSceneResume;
        static_assert(ascending({AT(scene), AT(node)}));
    }
    {
        using Record = HomeSceneData;
        static_assert(
            ascending({AT(alarmSetting), AT(dev), AT(ch), AT(channel), AT(device), AT(node)}));
    }
    {
        using Record = TriggerThrData;
        static_assert(ascending({AT(thread), AT(macro), AT(channel), AT(device), AT(node)}));
    }
    {
        using Record = EventLog;
        static_assert(ascending({AT(eventCode), AT(uid), AT(channelID), AT(productCode),
                                 AT(funcType), AT(sensorValue), AT(basicValue), AT(Dim_ON_Value),
                                 AT(dataUnit), AT(Scene_schedule_time), AT(sequence), AT(funcName),
                                 AT(timeStamp), AT(timeStamp_ms), AT(meter), AT(switch_color),
                                 AT(payload), AT(battery), AT(node)}));
    }
    {
        using Record = MacroEventLog;
        static_assert(ascending({AT(sequence), AT(name), AT(scene), AT(timeStamp), AT(node)}));
    }
    SUCCEED();
}

TEST(Records, OfTheDeviceSnapshotKeepTheOrderOfTheirFields)
{
    {
        using Record = GetDev;
        static_assert(ascending({AT(devices)}));
    }
    {
        using Record = GetDev_dev;
        static_assert(ascending(
            {AT(uid), AT(battery), AT(code), AT(lasttampertime), AT(channels), AT(node)}));
    }
    {
        using Record = GetDev_channel;
        static_assert(ascending(
            {AT(basicvalue), AT(Dim_ON_Value), AT(mainscene), AT(tampernotify), AT(lowbattnotify),
             AT(chid), AT(ctrltype), AT(functype), AT(security), AT(sensorstate), AT(sensorunit),
             AT(sensorvalue), AT(meter), AT(switch_color), AT(lastbeattime), AT(name), AT(node)}));
    }
    {
        using Record = GetDev_channel_meter;
        static_assert(ascending({AT(watt), AT(current), AT(kwh), AT(pf), AT(voltage)}));
    }
    {
        using Record = GetDev_channel_switch_color;
        static_assert(ascending({AT(comp_mask1), AT(comp_mask2), AT(comp_value)}));
    }
    SUCCEED();
}

TEST(Records, HaveFieldsOfTheirSizes)
{
    static_assert(sizeof(Text) == 128 && sizeof(RegDevice::token) == 1024);
    static_assert(sizeof(Scene::title) == 128 && offsetof(Scene, icon) == 256);
    static_assert(sizeof(Integer) == 8 && std::is_signed_v<Integer>);
    static_assert(sizeof(Scene::ID) == 8 && sizeof(Schedule::end_month) == 8 &&
                  sizeof(Trigger::threshold) == 8 && sizeof(EventFilter::uid) == 8);
    static_assert(std::size(Macro{}.enabled_notifications) == 3);
    static_assert(sizeof(ResumeScene::triggerFunctionType) == 1 &&
                  std::is_signed_v<decltype(ResumeScene::triggerFunctionType)>);
    // A planned command is of 32-bit words beside its target.
    static_assert(offsetof(TARGET_Comp, value) == 4 && offsetof(TARGET_Comp, timer) == 8 &&
                  offsetof(TARGET_Comp, seconds) == 12 && offsetof(TARGET_Comp, target) == 16);
    static_assert(std::is_unsigned_v<decltype(TARGET_Comp::timer)>);
    static_assert(sizeof(EventLog::sequence) == 4 &&
                  std::is_unsigned_v<decltype(EventLog::sequence)>);
    static_assert(sizeof(MacroEventLog::sequence) == 8);
    static_assert(sizeof comp_value_uid == 5 && sizeof comp_value_color_val == 5);
    SUCCEED();
}

// With a word of 32 bits, what aligns the 64-bit members may come after it.
template <typename Record> static constexpr bool endsAfter(size_t nodeOffset)
{
    const size_t end = nodeOffset + sizeof(ListNode);
    return end <= sizeof(Record) && sizeof(Record) - end < alignof(Record);
}

TEST(Records, EndWithTheirNode)
{
    static_assert(
        endsAfter<TARGET_Comp>(offsetof(TARGET_Comp, node)) &&
        endsAfter<Comp>(offsetof(Comp, node)) && endsAfter<Macro>(offsetof(Macro, node)) &&
        endsAfter<Trigger>(offsetof(Trigger, node)) &&
        endsAfter<Schedule>(offsetof(Schedule, node)) && endsAfter<Room>(offsetof(Room, node)) &&
        endsAfter<ResumeSchedule>(offsetof(ResumeSchedule, node)) &&
        endsAfter<HomeSceneData>(offsetof(HomeSceneData, node)) &&
        endsAfter<EventLog>(offsetof(EventLog, node)) &&
        endsAfter<MacroEventLog>(offsetof(MacroEventLog, node)));
    SUCCEED();
}
