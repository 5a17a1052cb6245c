// Drives the inspector's page in Chromium. VANTAMO_PROGRAM names the program, CHROMIUM the browser.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { after, before, beforeEach, test } from 'node:test';

const program = process.env.VANTAMO_PROGRAM;
const executablePath = process.env.CHROMIUM || '/usr/bin/chromium';
if (!existsSync(executablePath)) {
  console.log(`SKIPPED: the page was not tested, ${executablePath} is not there`);
  process.exit(0);
}

const { chromium } = await import('playwright-core');
let inspector;
let browser;
let page;
let url;
const faults = [];  // what must not happen in a page

async function start(port) {
  const child = spawn(program, ['collect', '--port', port, '--quiet'], { stdio: ['ignore', 'pipe', 'inherit'] });
  const lines = createInterface({ input: child.stdout });
  const [line] = await once(lines, 'line');
  return { child, url: line.match(/http:\S+/)[0] };
}

before(async () => {
  ({ child: inspector, url } = await start('0'));
  browser = await chromium.launch({ executablePath, args: process.getuid() === 0 ? ['--no-sandbox'] : [] });
});

after(async () => {
  await browser?.close();
  inspector?.kill();
});

beforeEach(async () => {
  await control('reset', {});
  await control('faults', { fail: null, slow: null, retryAfter: null, refuse: false });
  await page?.context().close();
  const context = await browser.newContext();
  await context.grantPermissions(['clipboard-read', 'clipboard-write'], { origin: url.slice(0, -1) });
  page = await context.newPage();
  faults.length = 0;
  page.on('dialog', (dialog) => { faults.push('a dialog'); dialog.dismiss(); });
  page.on('pageerror', (error) => faults.push(error.message));
  await page.goto(url);
  await page.locator('#connection[data-state=live]').waitFor();
});

const control = (path, members) => fetch(url + path, {
  method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(members),
});

const tag = (pageId, session = '1234567890') => ({
  tid: '1', pi: pageId, cg: '', se: '', sr: '', ul: 'APP_APPLE_A', vn2: 'e4.0', st: '1700000000',
  vn1: '4.1.8', ec: 'UTF-8', cjen: '1', cjuid: '1', cjsid: session, cjvf: '1',
});

const post = async (body) =>
  (await fetch(`${url}collect`, { method: 'POST', body: typeof body === 'string' ? body : JSON.stringify(body) })).status;

const rows = () => page.locator('#tags li');
const holds = (text) => rows().filter({ hasText: text }).first().waitFor();
const clipboard = () => page.evaluate(() => navigator.clipboard.readText());

test('tags appear live, newest first, and go when another page clears', async () => {
  await page.locator('#empty').waitFor();
  await post(tag('first'));
  await holds('first');
  await post(tag('second'));
  await holds('second');
  assert.match(await rows().first().textContent(), /firePageView.*pageId second/);
  await control('reset', {});
  await page.locator('#empty').waitFor();
});

test('filters by text, event, session and problems', async () => {
  await post(tag('alpha'));
  await post(tag('beta', '2234567890'));
  await post({ ...tag('gamma'), zz: 'x' });
  await holds('gamma');
  const counts = async (action, expected) => {
    await action();
    assert.equal(await rows().count(), expected);
  };
  await counts(() => page.fill('#text', 'ALPHA'), 1);
  await counts(() => page.fill('#text', ''), 3);
  await counts(() => page.selectOption('#session', '2234567890'), 1);
  await counts(() => page.selectOption('#session', ''), 3);
  await counts(() => page.check('#faulty'), 1);
  await post(tag('delta'));
  await post({ ...tag('epsilon'), zz: 'x' });
  await holds('epsilon');
  assert.equal(await rows().count(), 2);
  await counts(() => page.fill('#text', 'nowhere'), 0);
  await page.click('#unfilter');
  assert.equal(await rows().count(), 5);
});

test('pauses and goes on', async () => {
  await post(tag('before'));
  await holds('before');
  await page.keyboard.press('p');
  await post(tag('meanwhile'));
  await page.getByText('1 new · show').waitFor();
  assert.equal(await rows().count(), 1);
  await page.keyboard.press('p');
  await holds('meanwhile');
});

test('the keyboard moves, opens, copies and closes', async () => {
  await post({ ...tag('older'), pv_a1: 'x' });
  await post(tag('newer'));
  await holds('newer');
  await page.keyboard.press('j');
  await page.keyboard.press('j');
  await page.keyboard.press('Enter');
  await page.locator('#detail').getByText('older').waitFor();
  await page.keyboard.press('r');
  await page.getByText('Replay line copied').waitFor();
  assert.deepEqual(JSON.parse(await clipboard()), { call: 'firePageView', pageId: 'older', attributes: ['x'] });
  await page.keyboard.press('c');
  await page.getByText('JSON copied').waitFor();
  assert.equal(JSON.parse(await clipboard()).pv_a1, 'x');
  await page.keyboard.press('Escape');
  await page.locator('#detail').waitFor({ state: 'hidden' });
  await page.keyboard.press('/');
  await page.keyboard.type('pjx');
  assert.equal(await page.inputValue('#text'), 'pjx');
  await page.keyboard.press('Escape');
  await page.keyboard.press('?');
  await page.locator('#help').waitFor();
});

test('faults are switched from the page, and bad ones named', async () => {
  await page.keyboard.press('f');
  await page.fill('#fail-status', '503');
  await page.fill('#fail-percent', '100');
  await page.keyboard.press('Enter');
  await page.getByText('Faults are on: 100% of tags are answered 503').waitFor();
  assert.equal(await post(tag('refused')), 503);
  await holds('answered 503');
  await page.fill('#slow', 'soon');
  await page.keyboard.press('Enter');
  await page.getByText('a duration must be as 2s').waitFor();
  await page.click('#faults-off');
  await page.locator('#banner').waitFor({ state: 'hidden' });
  assert.equal(await post(tag('taken')), 204);
});

test('no value becomes markup or script', async () => {
  const hostile = '<img src=x onerror=alert(1)><script>alert(1)</script>"\'</title>';
  await post({ ...tag(hostile, hostile), [hostile]: hostile, ul: hostile, cjuid: hostile, constructor: 'x' });
  await post(hostile);
  await post(`{"${hostile.replaceAll('"', '\\"')}":`);
  await fetch(`${url}collect`, { method: 'POST', headers: { [`X-Evil`]: hostile }, body: '{}' });
  await post(tag('last'));
  await holds('last');
  for (let i = 0; i < 5; ++i) {
    await page.keyboard.press('j');
    await page.keyboard.press('Enter');
  }
  assert.equal(await page.locator('#tags img, #tags script, #detail img, #detail script').count(), 0);
  assert.match(await page.locator('#tags').textContent(), /<script>alert\(1\)<\/script>/);
  assert.deepEqual(faults, []);
});

test('a page that lost the inspector says so and comes back', async () => {
  const first = await start('0');
  await page.goto(first.url);
  await page.locator('#connection[data-state=live]').waitFor();
  await fetch(`${first.url}collect`, { method: 'POST', body: JSON.stringify(tag('of the first')) });
  await holds('of the first');
  first.child.kill();
  await page.locator('#connection[data-state=lost]').waitFor();
  const second = await start(new URL(first.url).port);
  await fetch(`${second.url}collect`, { method: 'POST', body: JSON.stringify(tag('of the second')) });
  await holds('of the second');
  assert.equal(await rows().count(), 1);
  second.child.kill();
});

test('thousands of tags stay usable', async () => {
  for (let i = 0; i < 3000; i += 50) {
    await Promise.all(Array.from({ length: 50 }, (_, n) => post(tag(`page-${i + n}`))));
  }
  await page.getByText('3,000 tags').waitFor();
  assert.equal(await rows().count(), 200);
  await page.fill('#text', 'page-2999');
  assert.equal(await rows().count(), 1);
});
