"""The driver does what the template says: what the policy editor would write is imported into the simulated machine."""

import re
import unittest

import admx
import machine
import project

STICK = {"use": "sandisk-ultra"}
DOCK = {"use": "thunderbolt-enclosure", "parent": "root"}
DOCK_DISK = "dock/downstream/controller/disk"
CARD = {"use": "sd-card", "parent": "root"}
EVERYTHING = {"stick": STICK, "plain stick": {"use": "no-serial-stick", "port": 9}, "ssd": {"use": "extreme-ssd"},
              "phone": {"use": "mtp-phone"}, "camera": {"use": "ptp-camera"}, "reader": {"use": "smart-card-reader"},
              "network": {"use": "rndis-adapter"}, "board": {"use": "fx2-board"}, "keyboard": {"use": "keyboard"},
              "mouse": {"use": "mouse"}, "hub": {"use": "hub"}}


class Enforced(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        texts = admx.read(admx.TEXTS)
        cls.strings, cls.presentations = admx.strings(texts), admx.presentations(texts)
        cls.policies = {policy.name: policy for policy in admx.policies(admx.read(admx.TEMPLATE))}

    def configured(self, **entered):
        """The values of policies that are enabled, by the name of the policy, with what was entered."""
        values = {}
        for name, data in entered.items():
            element = self.policies[name].elements[0]
            values[element.value] = admx.written(element, data)
        return values

    def decide(self, devices, **entered):
        return machine.decisions(devices, self.configured(**entered))

    def decide_each(self, devices, *policies):
        """The same for several policies, each as a map of what was entered."""
        return map(machine.decisions_of,
                   machine.play_all([({"devices": devices}, self.configured(**entered)) for entered in policies]))

    def decision(self, device, **entered):
        return self.decide({"device": device}, **entered)["device"]["decision"]

    def examples(self, policy):
        """The entries that an explanation shows, each in a line that begins with two blanks."""
        return re.findall(r"^  (\S.*)$", self.strings[f"{policy}_Help"], re.MULTILINE)

    def number_of(self, choice):
        return next(number for policy in self.policies.values() for element in policy.elements
                    if element.kind == "enum" for name, number in admx.choices(element).items() if name == choice)


class Kinds(Enforced):
    def filtered(self, values):
        return {name: device["filterable"] for name, device in machine.decisions(EVERYTHING, values).items()}

    def test_the_proposed_list_filters_what_the_built_in_list_does(self):
        built_in = self.filtered({"BlockedCompatibleIds": ("REG_SZ", "")})
        proposal = self.presentations["BlockedCompatibleIds"].find(f".//{admx.name('default')}").text
        self.assertEqual(self.filtered(self.configured(BlockedCompatibleIds=proposal)), built_in)
        self.assertTrue(built_in["stick"] and built_in["phone"] and built_in["network"] and built_in["board"])
        self.assertFalse(built_in["mouse"] or built_in["keyboard/keys"] or built_in["hub"])

    def test_each_suggestion_filters_the_kinds_that_it_names(self):
        wanted = {"Class_08": {"stick", "plain stick", "ssd"},
                  "Class_08 MS_COMP_MTP MS_COMP_PTP Class_06": {"stick", "plain stick", "ssd", "phone", "camera"},
                  "None": set()}
        suggestions = [node.text for node in self.presentations["BlockedCompatibleIds"].iter(admx.name("suggestion"))]
        self.assertEqual(set(suggestions), set(wanted) | {project.built_in_list()})
        for suggestion, names in wanted.items():
            filtered = self.filtered(self.configured(BlockedCompatibleIds=suggestion))
            self.assertEqual({name for name, is_filtered in filtered.items() if is_filtered}, names, suggestion)

    def test_the_examples_block_a_flash_drive(self):
        examples = self.examples("BlockedCompatibleIds")
        policies = [{"BlockedCompatibleIds": example} for example in examples]
        for example, found in zip(examples, self.decide_each({"stick": STICK}, *policies)):
            self.assertEqual(found["stick"]["decision"], "blocked", example)

    def test_letter_case_does_not_matter_but_in_patterns(self):
        self.assertEqual(self.decision(STICK, BlockedCompatibleIds="cLASS_08"), "blocked")
        self.assertEqual(self.decision(STICK, BlockedCompatibleIds="Class_0*"), "allowed")
        self.assertEqual(self.decision({"use": "mtp-phone"}, BlockedCompatibleIds="MS_COMP_*"), "blocked")

    def test_a_star_alone_takes_keyboards_away(self):
        self.assertEqual(self.decide(EVERYTHING, BlockedCompatibleIds="*")["keyboard/keys"]["decision"], "blocked")

    def test_taken_away_every_usb_device_works_and_thunderbolt_disks_do_not_start(self):
        found = machine.decisions({**EVERYTHING, "dock": DOCK}, self.configured(AllowedHardwareIdsAsText="*"))
        self.assertEqual(found[DOCK_DISK]["problem"], 31)
        self.assertEqual({name for name in found if found[name]["state"] != "started"}, {DOCK_DISK})

    def test_a_rule_that_no_device_has_lets_everything_work(self):
        found = self.decide({**EVERYTHING, "dock": DOCK}, BlockedCompatibleIds="None", AllowedHardwareIdsAsText="*",
                            ReadOnlyHardwareIdsAsText="None")
        self.assertEqual({device["state"] for device in found.values()}, {"started"})

    def test_a_list_as_long_as_a_policy_may_be_is_read(self):
        rules = "x" * 60 + " "
        longest = rules * (32757 // len(rules))
        text = longest + "y" * (32757 - len(longest)) + " Class_08"
        self.assertEqual(len(text), 32766)
        self.assertEqual(self.decision(STICK, BlockedCompatibleIds=text), "blocked")


class Lists(Enforced):
    KINDS = "Class_08 MS_COMP_MTP"

    def test_each_example_of_allowed_devices_allows(self):
        examples = self.examples("AllowedHardwareIds")
        policies = [{"BlockedCompatibleIds": self.KINDS, "AllowedHardwareIds": [example]} for example in examples]
        for example, found in zip(examples, self.decide_each({"stick": STICK}, *policies)):
            self.assertEqual(found["stick"]["decision"], "allowed", example)

    def test_each_example_of_read_only_devices_makes_one_read_only(self):
        devices = {"ssd": {"use": "extreme-ssd"}, "phone": {"use": "mtp-phone"}}
        first, second, everything = self.examples("ReadOnlyHardwareIds")
        outcomes = (([first], ("read-only", "blocked")), ([second], ("blocked", "read-only")),
                    ([first, second], ("read-only", "read-only")), ([everything], ("read-only", "read-only")))
        policies = [{"BlockedCompatibleIds": self.KINDS, "ReadOnlyHardwareIds": rules} for rules, _ in outcomes]
        for (rules, wanted), found in zip(outcomes, self.decide_each(devices, *policies)):
            self.assertEqual((found["ssd"]["decision"], found["phone"]["decision"]), wanted, rules)

    def test_one_serial_number_allows_no_other_drive(self):
        serial = next(example for example in self.examples("AllowedHardwareIds") if example.endswith("23"))
        other = {**STICK, "usb": {"serial": "4C530001230505117423"}}
        self.assertEqual(self.decision(other, BlockedCompatibleIds=self.KINDS, AllowedHardwareIds=[serial]), "blocked")

    def test_a_device_on_both_lists_is_allowed(self):
        self.assertEqual(self.decision(STICK, BlockedCompatibleIds=self.KINDS, AllowedHardwareIds=["VID_0781*"],
                                       ReadOnlyHardwareIds=["*"]), "allowed")

    def test_without_lists_devices_of_the_kinds_are_blocked(self):
        self.assertEqual(self.decision(STICK, BlockedCompatibleIds=self.KINDS), "blocked")

    def test_what_can_not_be_read_only_is_blocked(self):
        network = {"use": "rndis-adapter"}
        self.assertEqual(self.decision(network, BlockedCompatibleIds="Class_e0", ReadOnlyHardwareIds=["*"]), "blocked")

    def test_rules_of_lists_match_no_thunderbolt_disk(self):
        for rule in ("*", *self.examples("AllowedHardwareIdsAsText")[:1]):
            found = self.decide({"dock": DOCK}, BlockedCompatibleIds="None", AllowedHardwareIds=[rule],
                                ReadOnlyHardwareIds=[rule])
            self.assertEqual(found[DOCK_DISK]["decision"], "blocked", rule)


class Texts(Enforced):
    DEVICES = {"dock": DOCK, "stick": STICK}

    def dock(self, **entered):
        return self.decide(self.DEVICES, BlockedCompatibleIds="Class_08", **entered)

    def dock_each(self, *policies):
        return self.decide_each(self.DEVICES, *({"BlockedCompatibleIds": "Class_08", **policy} for policy in policies))

    def test_each_example_allows_a_thunderbolt_disk(self):
        examples = self.examples("AllowedHardwareIdsAsText")
        policies = [{"AllowedHardwareIdsAsText": example, "ReadOnlyHardwareIdsAsText": "None"} for example in examples]
        for example, found in zip(examples, self.dock_each(*policies)):
            self.assertEqual(found[DOCK_DISK]["decision"], "allowed", example)

    def test_each_example_makes_a_thunderbolt_disk_read_only(self):
        examples = self.examples("ReadOnlyHardwareIdsAsText")
        policies = [{"AllowedHardwareIdsAsText": "None", "ReadOnlyHardwareIdsAsText": example} for example in examples]
        for example, found in zip(examples, self.dock_each(*policies)):
            self.assertEqual((found[DOCK_DISK]["decision"], found[DOCK_DISK]["enforcement"]),
                             ("read-only", "writes-refused"), example)

    def test_one_text_holds_rules_for_usb_devices_too(self):
        _, both, everything = self.examples("AllowedHardwareIdsAsText")
        for rules in (both, everything):
            found = self.dock(AllowedHardwareIdsAsText=rules, ReadOnlyHardwareIdsAsText="None")
            self.assertEqual((found[DOCK_DISK]["decision"], found["stick"]["decision"]), ("allowed", "allowed"), rules)

    def test_a_thunderbolt_disk_on_both_lists_is_allowed_and_one_on_none_is_blocked(self):
        found = self.dock(AllowedHardwareIdsAsText="*", ReadOnlyHardwareIdsAsText="*")
        self.assertEqual(found[DOCK_DISK]["decision"], "allowed")
        found = self.dock(AllowedHardwareIdsAsText="None", ReadOnlyHardwareIdsAsText="None")
        self.assertEqual((found[DOCK_DISK]["decision"], found[DOCK_DISK]["problem"]), ("blocked", 29))

    def test_no_thunderbolt_disk_starts_without_a_list_of_read_only_devices(self):
        self.assertEqual(self.dock(AllowedHardwareIdsAsText="*")[DOCK_DISK]["problem"], 31)

    def test_no_thunderbolt_disk_is_allowed_without_a_list_of_allowed_devices(self):
        found = self.dock(ReadOnlyHardwareIdsAsText="*")
        self.assertEqual(found[DOCK_DISK]["decision"], "read-only")
        self.assertEqual(self.dock(ReadOnlyHardwareIdsAsText="None")[DOCK_DISK]["problem"], 29)
        self.assertEqual(self.dock(ReadOnlyHardwareIds=["None"])[DOCK_DISK]["problem"], 31)

    def test_a_question_mark_stands_for_a_blank_within_a_serial_number(self):
        stick = {**STICK, "usb": {"serial": "AB 12"}}
        self.assertEqual(self.decision(stick, BlockedCompatibleIds="Class_08",
                                       AllowedHardwareIdsAsText="VID_0781&PID_5581\\AB?12"), "allowed")


class SdCards(Enforced):
    def test_each_choice_does_what_it_says_for_every_card(self):
        outcomes = {"Blocked": "blocked", "ReadOnly": "read-only", "Allowed": "allowed"}
        policies = [{"SdCardMode": f"SdCardMode_{choice}"} for choice in outcomes]
        for wanted, found in zip(outcomes.values(), self.decide_each({"slot": CARD}, *policies)):
            self.assertEqual(found["slot/card/disk"]["decision"], wanted)

    def test_taken_away_cards_are_allowed(self):
        self.assertEqual(self.decide({"slot": CARD})["slot/card/disk"]["decision"], "allowed")

    def test_a_card_in_a_usb_reader_follows_the_lists(self):
        found = self.decide({"reader": {"use": "usb-card-reader"}}, BlockedCompatibleIds="Class_08",
                            AllowedHardwareIds=["*"], SdCardMode="SdCardMode_Blocked")
        self.assertEqual(found["reader/sd"]["decision"], "allowed")


class Service(Enforced):
    """One listed flash drive arrives; the service, where there is one, answers that it is read-only."""

    def arrive(self, service, **entered):
        steps = ["load", "start-control-node"]
        if service:
            steps += [{"open": 1234}, {"request": {"code": "IOCTL_WAIT_CALLBACK", "as": "question"}},
                      {"request": {"code": "IOCTL_WAIT_NOTIFICATION", "as": "told"}}]
        steps.append({"plug": "stick"})
        rules = {"BlockedCompatibleIds": "Class_08", "AllowedHardwareIds": ["VID_0781&PID_5581"]}
        return steps, self.configured(**rules, **entered)

    def outcome(self, steps, values):
        result = machine.play({"devices": {"stick": STICK}, "steps": steps}, values)
        stick = [device for device in result["devices"] if device["device"] == "stick"][-1]
        return stick["decision"], stick["why"]["reason"], stick["problem"]

    def test_the_rules_decide_unless_the_service_is_chosen(self):
        for entered in ({}, {"CallbackMode": "CallbackMode_Rules"}):
            for service in (False, True):
                self.assertEqual(self.outcome(*self.arrive(service, **entered))[:2], ("allowed", "rule"), entered)

    def test_a_service_that_is_there_decides(self):
        for choice in ("ServiceThenRules", "ServiceThenFallback"):
            steps, values = self.arrive(True, CallbackMode=f"CallbackMode_{choice}")
            steps += [{"reply": {"to": "question", "answer": "read-only"}}]
            self.assertEqual(self.outcome(steps, values)[:2], ("read-only", "service"), choice)

    def test_without_a_service_the_rules_or_the_fallback_decide(self):
        self.assertEqual(self.outcome(*self.arrive(False, CallbackMode="CallbackMode_ServiceThenRules"))[:2],
                         ("allowed", "rule"))
        for entered, wanted in (({}, "blocked"),
                                ({"CallbackFallbackAction": "CallbackFallbackAction_Blocked"}, "blocked"),
                                ({"CallbackFallbackAction": "CallbackFallbackAction_ReadOnly"}, "read-only")):
            steps, values = self.arrive(False, CallbackMode="CallbackMode_ServiceThenFallback", **entered)
            self.assertEqual(self.outcome(steps, values)[:2], (wanted, "callback-fallback"), entered)

    def waits(self, seconds, **entered):
        """Whether an answer counts that comes after so many seconds."""
        steps, values = self.arrive(True, CallbackMode="CallbackMode_ServiceThenRules", **entered)
        late = [{"advance": f"{seconds}s"}, {"reply": {"to": "question", "answer": "allowed"}}]
        return self.outcome([*steps, *late], values)[0] == "allowed"

    def test_a_question_waits_for_as_many_seconds_as_are_entered(self):
        self.assertTrue(self.waits(29))
        self.assertFalse(self.waits(30))
        self.assertTrue(self.waits(4, CallbackTimeout=5))
        self.assertFalse(self.waits(5, CallbackTimeout=5))
        self.assertTrue(self.waits(10_000_000, CallbackTimeout=0))
        self.assertTrue(self.waits(4_294_967_294, CallbackTimeout=4_294_967_295))

    def test_a_device_whose_question_is_not_answered_does_not_start(self):
        steps, values = self.arrive(True, CallbackMode="CallbackMode_ServiceThenRules", CallbackTimeout=5)
        self.assertEqual(self.outcome([*steps, {"advance": "6s"}], values)[2], 31)


class Log(Enforced):
    def levels(self, *policies):
        """The levels of the lines that are written when things go well, and when they fail, for each policy."""
        devices = {"boot": {"use": "internal-nvme", "parent": "root"}, "stick": STICK}
        results = machine.play_all([({"devices": devices}, self.configured(**entered)) for entered in policies])
        return [machine.log_levels(result) for result in results]

    def test_each_level_holds_the_lines_of_those_above_it(self):
        wanted = {"None": set(), "Fatal": set(), "Errors": {"ERROR"}, "Warnings": {"ERROR"},
                  "Progress": {"ERROR", "INFO"}, "Debug": {"ERROR", "INFO", "DEBUG"}, "All": {"ERROR", "INFO", "DEBUG"}}
        self.assertEqual({f"LogLevel_{choice}" for choice in wanted},
                         set(admx.choices(self.policies["LogLevel"].elements[0])))
        self.assertEqual(self.levels(*({"LogLevel": f"LogLevel_{choice}"} for choice in wanted)), list(wanted.values()))

    def test_taken_away_nothing_is_logged(self):
        self.assertEqual(self.levels({}), [set()])

    def test_the_choices_are_the_levels_of_the_driver(self):
        enumeration = re.search(r"enum class LogLevel[^{]*\{([^}]*)\}", project.source("log/log_level.h")).group(1)
        numbers = [int(number) for number in re.findall(r"= (\d+)", enumeration)]
        self.assertEqual(sorted(admx.choices(self.policies["LogLevel"].elements[0]).values()), numbers)


del Enforced  # it has no tests of its own
