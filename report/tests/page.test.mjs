// SPDX-License-Identifier: BSD-2-Clause
// All tests of the page, one after the other in one browser: they play in real time.
import "./page_figures.mjs";
import "./page_player.mjs";
import "./page_blind_test.mjs";
import "./page_access.mjs";
