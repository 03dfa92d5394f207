#!/usr/bin/env python3
"""The inspector in a browser, against the real service: what each panel does, and what it never does.

    inspector_test.py [NAME…]           runs the tests, or those whose class is named
    inspector_test.py --pictures FOLDER  also takes pictures of every panel
"""

import base64
import json
import os
import pathlib
import sys
import tempfile
import unittest
import urllib.parse

import devtools
import service

SKIPPED = 77

PANELS = {"journal": "Journal", "households": "Households", "faults": "Faults", "state": "State", "clock": "Clock"}


class InspectorTest(unittest.TestCase):
    """One browser for all tests of a class; for each test a service of its own."""

    options = ()
    # The parts of the admin interface, by their paths, without which the panels are left out.
    needs = ()

    @classmethod
    def setUpClass(cls):
        cls.browser = devtools.Browser()
        cls.addClassCleanup(cls.browser.close)

    def setUp(self):
        self.server = service.Service(os.environ["KESTRIN_SERVER"], *self.options)
        self.addCleanup(self.server.close)
        self.world = self.server.default
        self.require(*self.needs)

    def require(self, *paths):
        """Skips the test if the service has no such part."""
        for path in paths:
            if self.world.send("GET", f"/admin/v1/{path}").status == 404:
                self.skipTest(f"the service has no {path}")

    def open(self, panel="journal", world=None, **look):
        """Opens the page at a panel, and waits until it shows what there is."""
        world = world or self.world
        page = self.browser.open(f"{world.page}#/{panel}", **look)
        self.addCleanup(page.close)
        page.wait("document.querySelector('#connection').dataset.state !== 'connecting'")
        return page


class JournalTest(InspectorTest):
    needs = ("journal", "faults")

    def test_a_request_appears_at_once_and_opens_beside_its_reply(self):
        page = self.open()
        page.wait_for_text(".empty", "No request has come yet")
        self.world.watch("v1", 1234, True)
        page.click("[role=option]", "history-add-video")
        page.wait_for_text(".opened h2", "/v1/history/video?video=v1")
        page.wait_for_text("[aria-label=Request] .pairs", "kestrin")
        page.wait_for_text("[aria-label=Request] pre", '"progress": "1234"')
        page.wait_for_text("[aria-label=Reply] h4", "Headers")
        page.wait_for_text(".opened .facts", "204")

    def test_the_reply_is_shown_as_json_with_a_line_for_each_member(self):
        self.world.watch("v1", 1234, True)
        self.world.call("GET", f"history?{self.world.of()}")
        page = self.open()
        page.click("[role=option]", "history-get")
        page.wait_for_text("[aria-label=Reply] pre", '\n      "progress": 1234,')

    def test_a_key_that_was_sent_twice_is_shown_twice(self):
        self.world.call("PUT", f"history/video?video=v1&{self.world.of()}", b'{"type":"VIDEO","type":"GAME"}',
                        headers={"Content-Type": "application/json"})
        page = self.open()
        page.click("[role=option]", "history-add-video")
        page.wait_for_text("[aria-label=Request] pre", '"type": "VIDEO",\n  "type": "GAME"')

    def test_no_token_and_no_secret_is_on_the_page(self):
        self.world.watch("v1", 1, False)
        page = self.open()
        for operation in ("bind-anonymous", "history-add-video"):
            page.click("[role=option]", operation)
            page.wait_for_text(".opened .facts", operation)
            page.wait("document.querySelector('[aria-label=Request] .pairs')")
            html = page.evaluate("document.documentElement.outerHTML")
            self.assertNotIn(self.world.tokens["parent"], html)
            self.assertNotIn(self.world.household_secret(), html)

    def test_the_filters_show_what_matches_also_of_what_comes_later(self):
        self.world.watch("v1", 1, False)
        page = self.open()
        page.fill("[name=operation]", "personalization-history-get")
        page.wait_for_text(".listing .empty", "No request matches")
        self.world.watch("v2", 1, False)
        self.world.call("GET", f"history?{self.world.of()}")
        page.wait("document.querySelectorAll('[role=option]').length === 1")
        page.wait_for_text("[role=option]", "history-get")
        page.click("button", "Clear filters")
        page.wait("document.querySelectorAll('[role=option]').length === 4")

    def test_each_filter_is_the_services(self):
        self.world.watch("v1", 1234, False)
        page = self.open()
        for name, other, value in (
                ("operation", "personalization-history-get", "personalization-history-add-video"),
                ("profile", "anna", "parent"), ("household", "neighbours", "household"), ("item", "v2", "v1"),
                ("method", "DELETE", "PUT"), ("status", "5xx", "2xx"), ("path", "/v1/history", "/v1/history/video"),
                ("bodyContains", "4321", "1234")):
            page.fill(f"[name={name}]", other)
            page.wait_for_text(".listing .empty", "No request matches")
            page.fill(f"[name={name}]", value)
            page.wait_for_text("[role=option]", "history-add-video")
            page.click("button", "Clear filters")

    def test_the_arrow_keys_go_through_the_requests(self):
        for video in ("v1", "v2", "v3"):
            self.world.watch(video, 1, False)
        page = self.open()
        page.wait("document.querySelectorAll('[role=option]').length === 4")
        page.evaluate("document.querySelector('[role=listbox]').focus()")
        page.press("ArrowDown")
        page.wait_for_text(".opened h2", "video=v3")
        page.press("ArrowDown")
        page.wait_for_text(".opened h2", "video=v2")
        page.press("End")
        page.wait_for_text(".opened h2", "/v1/binds")
        page.press("Home")
        page.wait_for_text(".opened h2", "video=v3")
        active = page.evaluate("document.getElementById(document.querySelector('[role=listbox]')"
                               ".getAttribute('aria-activedescendant'))?.getAttribute('aria-selected')")
        self.assertEqual(active, "true")
        page.press("Enter")
        page.wait("document.activeElement.matches('.opened h2')")
        page.press("Escape")
        page.wait("document.activeElement.matches('[role=listbox]')")

    def test_a_paused_list_waits_and_then_catches_up(self):
        page = self.open()
        page.click("button", "Pause")
        self.world.watch("v1", 1, False)
        page.wait_for_text(".bar .count", "2 new")
        self.assertEqual(page.evaluate("document.querySelectorAll('[role=option]').length"), 0)
        page.click("button", "Resume")
        page.wait("document.querySelectorAll('[role=option]').length === 2")

    def test_the_journal_is_cleared_only_after_a_question(self):
        self.world.watch("v1", 1, False)
        page = self.open()
        page.wait("document.querySelectorAll('[role=option]').length === 2")
        page.click(".bar button", "Clear")
        page.click("dialog button", "Cancel")
        page.wait("!document.querySelector('dialog')")
        self.assertEqual(self.world.admin("GET", "journal")["total"], 2)
        page.click(".bar button", "Clear")
        page.click("dialog button", "Clear")
        page.wait_for_text(".listing .empty", "No request has come yet")
        self.assertEqual(self.world.admin("GET", "journal")["total"], 0)

    def test_the_journal_is_exported_as_an_http_archive(self):
        self.world.watch("v1", 1, False)
        with tempfile.TemporaryDirectory() as folder:
            page = self.open()
            self.browser.call("Browser.setDownloadBehavior", behavior="allow", browserContextId=page.context,
                              downloadPath=folder)
            page.click("button", "Export HAR")
            file = pathlib.Path(folder, "journal.har")
            while not file.exists():
                page.evaluate("new Promise(resolve => setTimeout(resolve, 20))")
            self.assertEqual(len(json.loads(file.read_text(encoding="utf-8"))["log"]["entries"]), 2)

    def test_of_ten_thousand_requests_only_those_in_sight_have_rows(self):
        # Sent ahead over one connection: what this test is about is the page.
        self.world.send_many("GET", "/v1/history?page=none", 10000)
        page = self.open()
        page.wait_for_text(".bar .count", "10,000 requests")
        page.wait("document.querySelectorAll('[role=option]').length > 0")
        self.assertLess(page.evaluate("document.querySelectorAll('*').length"), 1500)
        page.evaluate("document.querySelector('[role=listbox]').focus()")
        page.press("End")
        page.wait("document.querySelector('[role=option][aria-selected=true]')?.getAttribute('aria-posinset') === '10000'")
        page.press("Home")
        page.wait("document.querySelector('[role=option][aria-selected=true]')?.getAttribute('aria-posinset') === '1'")
        self.world.send_many("GET", "/v1/history?page=none", 50)
        page.wait_for_text(".bar .count", "The newest 10,000 of 10,050 requests")
        self.assertLess(page.evaluate("document.querySelectorAll('*').length"), 1500)

    def test_who_looks_at_older_requests_keeps_them_in_sight(self):
        self.world.send_many("GET", "/v1/history?page=none", 500)
        page = self.open()
        page.wait("document.querySelectorAll('[role=option]').length > 0")
        page.evaluate("document.querySelector('[role=listbox]').scrollTop = 4000")
        top = ("(() => { const list = document.querySelector('[role=listbox]').getBoundingClientRect();"
               " return document.elementFromPoint(list.left + 40, list.top + 20)?.closest('[role=option]')?.id; })()")
        before = page.wait(top)
        self.world.send_many("GET", "/v1/history?page=none", 30)
        page.wait_for_text(".bar .count", "530 requests")
        page.wait(f"{top} === {json.dumps(before)}")

    def test_findings_and_the_fault_that_acted_stand_beside_the_request(self):
        self.world.admin("POST", "faults", {"name": "busy evening", "when": {}, "count": 1,
                                            "action": {"kind": "status", "status": 503}})
        self.world.send("GET", f"/v1/history?{self.world.of()}")
        page = self.open()
        page.wait_for_text("[role=option]", "fault")
        page.click("[role=option]", "history-get")
        page.wait_for_text(".opened .facts", "busy evening")


class HouseholdsTest(InspectorTest):
    def test_a_profile_shows_all_four_lists(self):
        world = self.world
        anna = world.create("Anna", group="kids", avatar="cat")
        world.watch("v1", 3723, False, anna)
        world.watch("v2", 1234, True, anna)
        world.call("PUT", f"favorites/show?show=s1&{world.of(anna)}", {"type": "SHOW"}, anna)
        world.call("PUT", f"watchlist/video?video=w1&{world.of(anna)}", None, anna)
        world.call("POST", f"searches?search=cats%20and%20dogs&{world.of(anna)}", None, anna)
        page = self.open("households")
        page.click("a.card", "Anna")
        page.wait_for_text("[data-list=history] .item:nth-child(2)", "1:02:03")
        page.wait_for_text("[data-list=history] .item:nth-child(2)", "not finished")
        page.wait_for_text("[data-list=history] .item:nth-child(1)", "20:34")
        page.wait_for_text("[data-list=favorites]", "s1")
        page.wait_for_text("[data-list=watchlist]", "w1")
        page.wait_for_text("[data-list=searches]", "cats and dogs")
        page.wait_for_text(".opened .facts", "kids")
        self.assertNotIn("%", page.text(".lists"))

    def test_dates_are_as_far_away_as_the_services_clock_says(self):
        self.require("journal", "faults")
        self.world.watch("v1", 1, False)
        page = self.open("households/parent")
        page.wait_for_text("[data-list=history] time", "just now")
        self.world.admin("POST", "clock/advance", {"seconds": 3 * 3600})
        page.wait_for_text("[data-list=history] time", "3 hours ago")

    def test_what_changes_appears_without_a_reload(self):
        self.require("journal", "faults")
        page = self.open("households/parent")
        page.wait_for_text("[data-list=history]", "Empty")
        self.world.watch("v1", 1, False)
        page.wait_for_text("[data-list=history]", "v1")
        page.wait_for_text("a.card", "History 1")

    def test_blocking_a_profile_makes_the_service_refuse_it(self):
        page = self.open("households/parent")
        page.click(".opened button", "Block")
        page.wait_for_text(".opened .badge", "blocked")
        self.assertEqual(self.world.bind().status, 403)
        page.click(".opened button", "Unblock")
        page.wait("![...document.querySelectorAll('.opened .badge')].some(each => each.textContent === 'blocked')")
        self.assertEqual(self.world.bind().status, 200)

    def test_a_token_is_made_that_the_service_takes_or_one_that_has_expired(self):
        page = self.open("households/parent")
        page.click(".tool summary")
        status = {}
        for seconds in ("60", "-60"):
            page.evaluate("document.querySelector('.token').replaceChildren()")
            page.fill(".tool [name=seconds]", seconds)
            page.click(".tool button", "Make it")
            page.wait("document.querySelector('.token code')?.textContent")
            self.world.tokens["parent"] = page.text(".token code")
            status[seconds] = self.world.call("GET", f"history?{self.world.of()}").status
        self.assertEqual(status, {"60": 200, "-60": 403})

    def test_a_long_list_is_shown_in_portions(self):
        elements = [{"id": f"s{number}"} for number in range(120)]
        self.world.call("POST", f"favorites/shows?{self.world.of()}", {"elements": elements})
        page = self.open("households/parent")
        page.wait("document.querySelectorAll('[data-list=favorites] .item').length === 50")
        page.click("[data-list=favorites] button", "Show 50 more of 70")
        page.click("[data-list=favorites] button", "Show 20 more of 20")
        page.wait("document.querySelectorAll('[data-list=favorites] .item').length === 120")


class FaultsTest(InspectorTest):
    needs = ("journal", "faults")

    def history(self):
        return self.world.call("GET", f"history?{self.world.of()}")

    def test_a_fault_of_the_form_acts_and_can_be_removed(self):
        self.world.headers()
        page = self.open("faults")
        page.fill("[name='action.status']", "503")
        page.fill("[name='action.retryAfter']", "7")
        page.fill(".maker [name=operation]", "personalization-history-get")
        page.fill(".maker [name=profile]", "parent")
        page.fill(".maker [name=name]", "history is away")
        page.click(".maker button", "Set the fault")
        page.wait_for_text(".fault", "history is away")
        reply = self.history()
        self.assertEqual((reply.status, reply.headers["retry-after"]), (503, "7"))
        page.wait_for_text(".fault .badge", "used 1×")
        self.assertEqual(self.world.watch("v1", 1, False).status, 204)
        page.click(".fault button", "Remove")
        page.wait_for_text(".faults-set", "None.")
        self.assertEqual(self.history().status, 200)

    def test_every_kind_of_fault_can_be_set(self):
        page = self.open("faults")
        kinds = page.wait("(() => { const all = [...document.querySelectorAll('[name=kind] option')].map(each => each.value);"
                          " return all.length > 0 && all; })()")
        for count, kind in enumerate(kinds, 1):
            page.fill("[name=kind]", kind)
            page.fill(".maker [name=count]", "3")
            page.fill(".maker [name=percent]", "50")
            page.fill(".maker [name=seed]", "7")
            page.fill(".maker [name=until]", "2099-01-01T00:00:00")
            page.click(".maker button", "Set the fault")
            page.wait(f"document.querySelectorAll('.fault').length === {count} || "
                      "(() => { if (!document.querySelector('#problem').hidden) throw new Error(document.querySelector('#problem').textContent); })()")
        faults = self.world.admin("GET", "faults")["faults"]
        self.assertEqual([each["action"]["kind"] for each in faults], kinds)
        self.assertEqual({(each["count"], each["probability"], each["seed"]) for each in faults}, {(3, 0.5, 7)})

    def test_a_scenario_is_switched_on_and_everything_off(self):
        page = self.open("faults")
        page.click("button", "Switch on outage")
        page.wait("document.querySelectorAll('.fault').length > 0")
        self.assertNotEqual(self.world.admin("GET", "faults")["faults"], [])
        page.click("button", "Remove all")
        page.click("dialog button", "Remove all")
        page.wait_for_text(".faults-set", "None.")
        self.assertEqual(self.world.admin("GET", "faults")["faults"], [])

    def test_what_the_service_refuses_is_said_in_its_words(self):
        page = self.open("faults")
        page.fill(".maker [name=operation]", "no-such-operation")
        page.click(".maker button", "Set the fault")
        page.wait("!document.querySelector('#problem').hidden && document.querySelector('#problem').textContent")
        self.assertIn("operation", page.text("#problem"))

    def test_a_request_of_the_journal_leads_to_a_fault_like_it(self):
        self.world.watch("v1", 1, False)
        page = self.open()
        page.click("[role=option]", "history-add-video")
        page.click(".opened a", "fail…")
        page.wait("document.querySelector('.maker [name=operation]')?.value === 'personalization-history-add-video'")
        self.assertEqual(page.evaluate("document.querySelector('.maker [name=profile]').value"), "parent")


class StateTest(InspectorTest):
    def names(self):
        return [each["username"] for each in self.world.call("GET", "profiles?profile=parent&v=1").json()["data"]]

    def test_a_snapshot_brings_back_what_was_there(self):
        page = self.open("state")
        page.fill("[aria-label='A new snapshot'] [name=name]", "before Anna")
        page.click("button", "Take a snapshot")
        page.wait_for_text("[data-snapshot='before Anna']", "just now")
        self.world.create("Anna")
        page.click("button", "Restore before Anna")
        page.click("dialog button", "Restore")
        page.wait_for_text("#notice", "The snapshot is restored")
        self.assertEqual(len(self.names()), 1)
        page.click("button", "Delete before Anna")
        page.click("dialog button", "Delete")
        page.wait_for_text("[aria-label=Snapshots]", "None was taken yet")

    def test_a_ready_state_replaces_what_is_there(self):
        page = self.open("state")
        page.click("button", "Apply five-profiles")
        page.click("dialog button", "Apply")
        page.wait_for_text("#notice", "five-profiles")
        self.assertEqual(len(self.world.admin("GET", "households")["households"][0]["profiles"]), 5)

    def test_a_seed_file_replaces_everything(self):
        self.world.create("Anna")
        seed = self.world.admin("GET", "state")
        self.world.create("Ben")
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            json.dump(seed, file)
            file.flush()
            page = self.open("state")
            page.wait("document.querySelector('[type=file]')")
            page.choose_file("[type=file]", file.name)
            page.click("button", "Replace everything")
            page.click("dialog button", "Replace")
            page.wait_for_text("#notice", "replaced")
        profiles = self.world.admin("GET", "households")["households"][0]["profiles"]
        self.assertEqual([each["username"] for each in profiles][1:], ["Anna"])

    def test_a_file_that_is_no_seed_is_refused_with_a_reason(self):
        with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
            file.write("[1,")
            file.flush()
            page = self.open("state")
            page.wait("document.querySelector('[type=file]')")
            page.choose_file("[type=file]", file.name)
            page.click("button", "Add")
            page.wait_for_text("#problem", "is no JSON")

    def test_reset_brings_back_the_start(self):
        self.require("journal", "faults")
        self.world.create("Anna")
        self.world.admin("POST", "faults", {"when": {}, "action": {"kind": "malformed"}})
        page = self.open("state")
        page.click("button", "Reset everything")
        page.click("dialog button", "Reset")
        page.wait_for_text("#notice", "as it was at the start")
        self.world.tokens = {}
        self.assertEqual(len(self.names()), 1)
        self.assertEqual(self.world.admin("GET", "faults")["faults"], [])


class ClockTest(InspectorTest):
    def test_the_clock_is_frozen_set_and_moved(self):
        page = self.open("clock")
        page.click("button", "Freeze")
        page.wait_for_text(".block p", "It stands still")
        self.assertTrue(self.world.admin("GET", "clock")["frozen"])
        page.fill("[name=now]", "2030-05-06T07:08:09")
        page.click(".block button", "Set")
        page.wait_for_text(".clock", "2030-05-06 07:08:09")
        self.assertEqual(self.world.admin("GET", "clock")["now"], "2030-05-06T07:08:09.000Z")
        page.click("button", "+1 hour")
        page.wait_for_text(".clock", "2030-05-06 08:08:09")
        page.fill("[name=seconds]", "-90")
        page.click(".block button", "Move")
        page.wait_for_text(".clock", "2030-05-06 08:06:39")
        page.click("button", "Back to the system")
        page.wait_for_text(".block p", "It runs with the system")
        clock = self.world.admin("GET", "clock")
        self.assertEqual((clock["frozen"], clock["offsetSeconds"]), (False, 0))

    def test_a_clock_that_another_moves_is_shown(self):
        self.require("journal", "faults")
        page = self.open("clock")
        self.world.admin("PUT", "clock", {"now": "2040-01-02T03:04:05.000Z", "frozen": True})
        page.wait_for_text(".clock", "2040-01-02 03:04:05")


class NamespacesTest(InspectorTest):
    needs = ("journal", "faults")

    def test_a_namespace_is_made_shown_and_deleted(self):
        self.world.watch("v1", 1, False)
        page = self.open()
        page.wait("document.querySelectorAll('[role=option]').length === 2")
        page.click("button", "New…")
        page.fill("dialog [name=name]", "run-1")
        page.click("dialog button", "Make it")
        page.wait("location.pathname === '/n/run-1/admin/'")
        page.wait_for_text(".empty", "No request has come yet")
        other = service.World(f"{self.server.url}/n/run-1")
        other.watch("v2", 1, False)
        page.wait("document.querySelectorAll('[role=option]').length === 2")
        self.assertEqual(page.evaluate("document.querySelector('.namespaces select').selectedOptions[0].textContent"), "run-1")
        page.click("button", "Delete…")
        page.click("dialog button", "Delete")
        page.wait("location.pathname === '/admin/'")
        self.assertEqual(len(self.world.admin("GET", "namespaces")["namespaces"]), 1)

    def test_the_chooser_leads_to_another_namespace(self):
        self.world.admin("POST", "namespaces", {"name": "run-2"})
        page = self.open()
        page.wait("document.querySelectorAll('.namespaces option').length === 2")
        page.fill(".namespaces select", f"{self.server.url}/n/run-2/admin/")
        page.wait("location.pathname === '/n/run-2/admin/'")


class SecretTest(InspectorTest):
    needs = ("journal", "faults")
    secret = "a-long-admin-secret"

    def setUp(self):
        with tempfile.NamedTemporaryFile("w", delete=False) as file:
            file.write(self.secret + "\n")
        self.addCleanup(os.unlink, file.name)
        self.options = ("--admin-secret-file", file.name)
        super().setUp()
        self.world = service.World(self.server.url, self.secret)

    def test_the_page_asks_for_the_secret_and_keeps_it_for_the_tab(self):
        page = self.browser.open(self.world.page)
        self.addCleanup(page.close)
        page.wait("document.querySelector('dialog [name=secret]')")
        page.fill("dialog [name=secret]", "another-admin-secret")
        page.click("dialog button", "Continue")
        page.wait_for_text("dialog", "That was not the secret")
        page.fill("dialog [name=secret]", self.secret)
        page.click("dialog button", "Continue")
        page.wait("document.querySelector('#connection').dataset.state === 'live'")
        self.world.watch("v1", 1, False)
        page.wait_for_text("[role=option]", "history-add-video")
        self.assertNotIn(self.secret, page.evaluate("location.href + document.cookie + JSON.stringify(localStorage)"
                                                    " + document.documentElement.outerHTML"))
        self.assertFalse(any(self.secret in urllib.parse.unquote(each) for each in page.requests))
        page.call("Page.reload")
        page.wait("document.querySelector('#connection')?.dataset.state === 'live'")

    def test_who_declines_is_not_asked_again(self):
        page = self.browser.open(self.world.page)
        self.addCleanup(page.close)
        page.click("dialog button", "Cancel")
        page.wait("document.querySelector('#connection').dataset.state === 'refused'")
        page.wait_for_text("#problem", "Without the admin secret")
        self.assertFalse(page.evaluate("Boolean(document.querySelector('dialog'))"))


class SafetyTest(InspectorTest):
    needs = ("journal", "faults")
    # Ends every context that a text could stand in, and begins an element.
    attack = "\"'`></script></textarea></title><img src=x onerror=\"hacked=1\"><svg onload=hacked=1>{{7*7}}\u202e\u200b"

    def send_attacks(self):
        """Sends it in every field that a client can fill, and in those of the admin interface."""
        world, attack = self.world, self.attack
        quoted = urllib.parse.quote(attack, safe="")
        profile = world.create(attack[:40], avatar=attack, group=attack)
        at = f"brand={quoted}&profile={profile}&v=1"
        statuses = [
            world.call("PUT", f"history/video?video={quoted}&{at}", {"type": attack, "progress": "1"}, profile),
            world.call("PUT", f"favorites/show?show={quoted}&{at}", {"type": attack}, profile),
            world.call("POST", f"favorites/shows?{at}", {"elements": [{"id": attack + "2", "type": attack}]}, profile),
            world.call("PUT", f"watchlist/video?video={quoted}&{at}", {"type": attack}, profile),
            world.call("POST", f"searches?search={quoted}&{at}", None, profile),
        ]
        self.assertEqual({each.status for each in statuses}, {204})
        raw = attack.encode().decode("latin-1").replace("\n", "")
        world.send("GET", f"/{quoted}?{quoted}={quoted}", {"X-Request-ID": "<img/src=x/onerror=hacked=1>", "X-Attack": raw,
                   "PXRO-PROFILE-ID": "<img/src=x/onerror=hacked=1>", "User-Agent": "<svg/onload=hacked=1>"})
        world.send("POST", "/v1/binds?profile=parent&v=1", {"Content-Type": "<svg/onload=hacked=1>"}, attack.encode())
        world.send("POST", "/v1/binds?profile=parent&v=1", {"Content-Type": "application/json"}, b"\xff\xfe<svg onload=hacked=1>")
        world.send("HACK", "/<svg/onload=hacked=1>")
        world.admin("POST", "faults", {"name": attack, "when": {"profile": "<svg/onload=hacked=1>"},
                                       "action": {"kind": "status", "status": 503, "contentType": "<svg/onload=hacked=1>",
                                                  "retryAfter": "<svg/onload=hacked=1>", "body": attack}})
        return profile

    def looked_at_everything(self, page, profile):
        """Opens whatever there is, one after the other; yields after each."""
        for panel in PANELS:
            page.evaluate(f"location.hash = '#/{panel}'")
            page.wait(f"document.querySelector('nav [aria-current]')?.textContent === '{PANELS[panel]}'")
            yield panel
        page.evaluate(f"location.hash = '#/households/{profile}'")
        page.wait("document.querySelectorAll('.lists .item').length === 5")
        yield "profile"
        for entry in self.world.admin("GET", "journal?limit=100")["entries"]:
            page.evaluate(f"location.hash = '#/journal/{entry['id']}'")
            page.wait(f"[...document.querySelectorAll('.opened .facts div')].some(each => each.textContent === 'Entry{entry['id']}')")
            yield f"entry {entry['id']}"

    def test_what_clients_send_is_never_markup(self):
        profile = self.send_attacks()
        page = self.open()
        seen = ""
        for place in self.looked_at_everything(page, profile):
            seen += page.evaluate("document.body.innerText")
            for unwanted in ("img:not([src='icon.svg'])", "svg", "script:not([src='inspector.js'])", "iframe", "[onerror], [onload]"):
                self.assertEqual(page.evaluate(f"document.querySelectorAll({json.dumps(unwanted)}).length"), 0, place)
        self.assertEqual(page.evaluate("typeof hacked"), "undefined")
        # They were there to be seen, as text, with their hidden characters shown.
        self.assertIn('<img src=x onerror="hacked=1"><svg onload=hacked=1>{{7*7}}\\u202e\\u200b', seen)
        self.assertEqual(page.complaints, [])

    def test_no_request_of_the_page_leaves_the_service(self):
        profile = self.send_attacks()
        page = self.open()
        for _ in self.looked_at_everything(page, profile):
            pass
        self.assertGreater(len(page.requests), 20)
        # Those of the scheme "data" are pictures of the browser's own fields.
        self.assertEqual([each for each in page.requests if not each.startswith((f"{self.server.url}/", "data:"))], [])

    def test_the_policy_stops_what_the_page_itself_would_never_do(self):
        page = self.open()
        stopped = page.evaluate("""(async () => {
            const stopped = [];
            addEventListener('securitypolicyviolation', event => stopped.push(event.effectiveDirective));
            try { document.body.innerHTML = '<b>x</b>'; } catch { }
            await fetch('http://127.0.0.1:1/').catch(() => {});
            const image = new Image();
            await new Promise(resolve => { image.onerror = resolve; image.src = 'http://127.0.0.1:1/x.png'; });
            const script = document.createElement('script');
            try { script.textContent = 'hacked = 1'; document.body.append(script); } catch { }
            while (stopped.length < 4) await new Promise(resolve => setTimeout(resolve, 10));
            return stopped.sort();
        })()""")
        self.assertEqual(stopped, ["connect-src", "img-src", "require-trusted-types-for", "require-trusted-types-for"])
        self.assertEqual(page.evaluate("typeof hacked"), "undefined")


class LookTest(InspectorTest):
    needs = ("journal", "faults")

    def prepare(self):
        world = self.world
        anna = world.create("Anna Karenina-Wolkonskaya", group="kids", avatar="cat")
        for number in range(12):
            world.watch(f"a-rather-long-identifier-of-a-video-{number}", 700 * number, number % 3 == 0, anna)
        world.call("POST", f"searches?search=cats%20and%20dogs&{world.of(anna)}", None, anna)
        world.call("PUT", f"favorites/show?show=The%20Long%20Road&{world.of(anna)}", {"type": "SHOW"}, anna)
        world.admin("POST", "faults", {"name": "busy evening", "when": {"operation": "personalization-history-get"},
                                       "probability": 0.5, "action": {"kind": "status", "status": 503, "retryAfter": 5}})
        world.send("GET", "/v1/nothing")
        return anna

    def test_every_panel_fits_from_phones_to_large_screens_and_is_readable_in_dark_and_light(self):
        anna = self.prepare()
        page = self.open()
        newest = self.world.admin("GET", "journal?limit=5")["entries"][-1]["id"]
        for scheme in ("light", "dark"):
            for width, height in ((360, 740), (768, 1024), (1280, 800), (1920, 1080)):
                page.show_as(width, height, scheme)
                for panel in (*PANELS, f"households/{anna}", f"journal/{newest}"):
                    with self.subTest(panel=panel, width=width, scheme=scheme):
                        page.evaluate(f"location.hash = '#/{panel}'")
                        page.wait(f"document.querySelector('main > section:not([hidden])')?.getAttribute('aria-label') === '{PANELS[panel.split('/')[0]]}'")
                        if "/" in panel:
                            page.wait("document.querySelector('section:not([hidden]) .opened .facts')")
                        page.evaluate("new Promise(resolve => requestAnimationFrame(() => requestAnimationFrame(resolve)))")
                        self.assertLessEqual(page.evaluate("document.documentElement.scrollWidth"), width)
                        self.assertEqual(page.evaluate(TOO_WIDE), [])
                        self.assertEqual(page.evaluate(TOO_FAINT), [])
                        self.take_picture(page, f"{panel.split('/')[0]}{'-opened' if '/' in panel else ''}-{width}-{scheme}")

    def take_picture(self, page, name):
        folder = os.environ.get("KESTRIN_PICTURES")
        if folder:
            pathlib.Path(folder, f"{name}.png").write_bytes(base64.b64decode(page.screenshot()))

    def test_everything_can_be_reached_with_the_keyboard_and_shows_that_it_has_the_focus(self):
        self.prepare()
        page = self.open("faults")
        page.wait("document.querySelector('.fault button')")
        wanted = page.evaluate("[...document.querySelectorAll('a, button, input, select, textarea, summary')]"
                               ".filter(each => each.checkVisibility()).length")
        reached = set()
        # Fields for times have several stops each.
        for _ in range(2 * wanted):
            page.press("Tab")
            reached.add(page.evaluate("(() => { const each = document.activeElement; each.reached ??= Math.random();"
                                      " return each.matches('body') ? 0 : each.reached; })()"))
            # The button within a field for times is the browser's own.
            self.assertTrue(page.evaluate("document.activeElement.matches('body, [type=datetime-local]') ||"
                                          " getComputedStyle(document.activeElement).outlineStyle !== 'none'"))
        self.assertGreaterEqual(len(reached - {0}), wanted)

    def test_every_control_has_a_name(self):
        anna = self.prepare()
        page = self.open()
        for panel in (*PANELS, f"households/{anna}"):
            page.evaluate(f"location.hash = '#/{panel}'")
            page.wait(f"document.querySelector('nav [aria-current]')?.textContent === '{PANELS[panel.split('/')[0]]}'")
            nodes = page.call("Accessibility.getFullAXTree")["nodes"]
            roles = ("button", "link", "textbox", "combobox", "spinbutton", "option", "listbox")
            nameless = [each for each in nodes if each.get("role", {}).get("value") in roles
                        and not each["ignored"] and not each.get("name", {}).get("value")]
            self.assertEqual(nameless, [], panel)

    def test_nothing_moves_for_who_wants_no_motion(self):
        page = self.open()
        self.assertEqual(page.evaluate("[...document.querySelectorAll('*')].filter(each => "
                                       "getComputedStyle(each).transitionDuration.split(', ').some(time => time !== '0s')"
                                       " || getComputedStyle(each).animationName !== 'none').length"), 0)


# What sticks out of the page at its right side.
TOO_WIDE = """[...document.querySelectorAll('main *, header *')].filter(each => each.checkVisibility()
    && !each.closest('.rows') && each.getBoundingClientRect().right > innerWidth + 1
    && getComputedStyle(each).position !== 'absolute').map(each => each.outerHTML.slice(0, 100))"""

# Texts with less contrast than 4.5 : 1 (https://www.w3.org/TR/WCAG21/#contrast-minimum).
TOO_FAINT = """(() => {
    const canvas = document.createElement('canvas').getContext('2d', { willReadFrequently: true });
    const rgb = color => {
        canvas.clearRect(0, 0, 1, 1);
        canvas.fillStyle = color;
        canvas.fillRect(0, 0, 1, 1);
        return [...canvas.getImageData(0, 0, 1, 1).data];
    };
    const ground = each => {
        for (; each; each = each.parentElement) {
            const color = rgb(getComputedStyle(each).backgroundColor);
            if (color[3] === 255) return color;
        }
        return [255, 255, 255, 255];
    };
    const luminance = color => color.slice(0, 3).map(part => part / 255)
        .map(part => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
        .reduce((sum, part, at) => sum + part * [0.2126, 0.7152, 0.0722][at], 0);
    const contrast = each => {
        const [dark, light] = [rgb(getComputedStyle(each).color), ground(each)].map(luminance).sort((a, b) => a - b);
        return (light + 0.05) / (dark + 0.05);
    };
    return [...document.querySelectorAll('body *')].filter(each => each.checkVisibility()
        && [...each.childNodes].some(child => child.nodeType === 3 && child.textContent.trim() !== '')
        && !each.closest('noscript') && contrast(each) < 4.5)
        .map(each => `${contrast(each).toFixed(2)} ${each.outerHTML.slice(0, 100)}`);
})()"""


if __name__ == "__main__":
    reason = devtools.missing()
    if reason is not None:
        print(reason)
        sys.exit(SKIPPED)
    if "--pictures" in sys.argv:
        at = sys.argv.index("--pictures")
        os.environ["KESTRIN_PICTURES"] = sys.argv[at + 1]
        del sys.argv[at:at + 2]
    program = unittest.main(verbosity=2, exit=False)
    if not program.result.wasSuccessful():
        sys.exit(1)
    sys.exit(SKIPPED if len(program.result.skipped) == program.result.testsRun else 0)
