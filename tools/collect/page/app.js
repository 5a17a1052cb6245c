// The page of the tag inspector: follows the server's events, and keeps the list small enough to be
// drawn at once.

import { detail, row, searchText } from './tags.js';

const mostTags = 10000;
const rowsAtATime = 200;

const byId = (id) => document.getElementById(id);
const list = byId('tags');
const panel = byId('detail');

let tags = [];          // oldest first
let shown = [];         // those that the filter takes, newest first
let limit = rowsAtATime;
let arrived = [];       // not yet drawn
let drawing = false;
let paused = false;
let selected = null;    // a sequence number
let opened = null;
let source = null;
const filter = { text: '', event: '', session: '', faulty: false };

// --- the list

function fits(tag) {
  if (filter.event && tag.event !== filter.event) return false;
  if (filter.session && tag.session !== filter.session) return false;
  if (filter.faulty && tag.problems.length === 0) return false;
  if (!filter.text) return true;
  tag.searched ??= searchText(tag);
  return tag.searched.includes(filter.text);
}

function redraw() {
  shown = tags.filter(fits).reverse();
  list.replaceChildren(...shown.slice(0, limit).map(row));
  settle();
}

function drawArrived() {
  drawing = false;
  if (paused) {
    showCounts();
    return;
  }
  const batch = arrived;
  arrived = [];
  tags.push(...batch);
  if (tags.length > mostTags) {
    tags = tags.slice(-mostTags);
    redraw();
  } else {
    const fresh = batch.filter(fits).reverse();
    shown.unshift(...fresh);
    list.prepend(...fresh.slice(0, limit).map(row));
    while (list.childElementCount > limit) list.lastElementChild.remove();
    settle();
  }
  batch.forEach(addChoices);
}

function settle() {
  byId('older').hidden = shown.length <= limit;
  byId('empty').hidden = tags.length > 0;
  byId('nothing').hidden = tags.length === 0 || shown.length > 0;
  list.hidden = shown.length === 0;
  mark();
  showCounts();
}

function showCounts() {
  const faulty = tags.reduce((sum, tag) => sum + (tag.problems.length > 0 ? 1 : 0), 0);
  const words = [`${tags.length.toLocaleString()} ${tags.length === 1 ? 'tag' : 'tags'}`];
  if (shown.length !== tags.length) words.unshift(`${shown.length.toLocaleString()} of`);
  if (faulty > 0) words.push(`· ${faulty.toLocaleString()} with problems`);
  byId('count').textContent = tags.length === 0 ? 'No tags yet' : words.join(' ');
  const waiting = byId('waiting');
  waiting.hidden = !paused || arrived.length === 0;
  waiting.textContent = `${arrived.length.toLocaleString()} new · show`;
}

function addChoices(tag) {
  for (const kind of ['event', 'session']) {
    const choices = byId(kind);
    const value = tag[kind];
    const isKnown = !value || [...choices.options].some((option) => option.value === value);
    if (!isKnown && choices.options.length < 300) choices.add(new Option(value, value));
  }
}

function take(tag) {
  arrived.push(tag);
  if (arrived.length > mostTags) arrived.shift();
  if (drawing) return;
  drawing = true;
  // A page in the background gets no frames.
  if (document.hidden) setTimeout(drawArrived, 200);
  else requestAnimationFrame(drawArrived);
}

function forgetAll() {
  tags = [];
  arrived = [];
  limit = rowsAtATime;
  for (const kind of ['event', 'session']) byId(kind).length = 1;
  Object.assign(filter, { event: '', session: '' });
  byId('dropped').hidden = true;
  select(null);
  close();
  redraw();
}

// --- one tag

const find = (sequence) => tags.find((tag) => tag.sequence === sequence);

function mark() {
  list.querySelector('[aria-selected=true]')?.setAttribute('aria-selected', 'false');
  const line = selected === null ? null : byId(`tag-${selected}`);
  line?.setAttribute('aria-selected', 'true');
  if (line) list.setAttribute('aria-activedescendant', line.id);
  else list.removeAttribute('aria-activedescendant');
}

function select(sequence) {
  selected = sequence;
  mark();
}

function open(sequence) {
  const tag = find(sequence);
  if (!tag) return;
  select(sequence);
  opened = sequence;
  panel.replaceChildren(...detail(tag, (name) => ({ close, json: copyJson, replay: copyReplay })[name]()));
  panel.hidden = false;
  panel.scrollTop = 0;
  document.body.classList.add('detailed');
  // Where the panel covers the list, the line comes up from under it.
  byId(`tag-${sequence}`)?.scrollIntoView({ block: 'nearest' });
}

function close() {
  opened = null;
  panel.hidden = true;
  document.body.classList.remove('detailed');
}

function move(step) {
  const at = shown.findIndex((tag) => tag.sequence === selected);
  const next = at < 0 ? 0 : Math.min(Math.max(at + step, 0), shown.length - 1);
  if (!shown[next]) return;
  if (next >= limit) showOlder();
  select(shown[next].sequence);
  byId(`tag-${selected}`).scrollIntoView({ block: 'nearest' });
  if (opened !== null) open(selected);
}

function showOlder() {
  const from = limit;
  limit += rowsAtATime;
  list.append(...shown.slice(from, limit).map(row));
  settle();
}

// --- copying

function toast(text) {
  const note = byId('toast');
  note.textContent = text;
  note.classList.add('shown');
  clearTimeout(toast.timer);
  toast.timer = setTimeout(() => note.classList.remove('shown'), 1800);
}

async function copy(text, what) {
  try {
    await navigator.clipboard.writeText(text);
    toast(`${what} copied`);
  } catch {
    // Over plain HTTP from another device there is no clipboard but this one.
    const area = document.createElement('textarea');
    area.value = text;
    document.body.append(area);
    area.select();
    const done = document.execCommand('copy');
    area.remove();
    toast(done ? `${what} copied` : 'This browser does not let a page copy');
  }
}

function copyJson() {
  const tag = find(selected);
  if (tag) copy(tag.body === null ? tag.raw || '' : JSON.stringify(tag.body, null, 2), 'JSON');
}

function copyReplay() {
  const tag = find(selected);
  if (tag?.replay) copy(tag.replay, 'Replay line');
}

// --- controls

function setPaused(now) {
  paused = now;
  byId('pause').setAttribute('aria-pressed', String(now));
  byId('pause').textContent = now ? 'Go on' : 'Pause';
  document.body.classList.toggle('paused', now);
  showConnection();
  drawArrived();
}

async function post(path, members) {
  const answer = await fetch(path, {
    method: 'POST', headers: { 'Content-Type': 'application/json' }, body: JSON.stringify(members),
  });
  if (!answer.ok) throw new Error((await answer.text()).trim());
}

function clear() {
  post('/reset', {}).catch((error) => toast(`Not cleared: ${error.message}`));
}

function applyFilter() {
  filter.text = byId('text').value.trim().toLowerCase();
  filter.event = byId('event').value;
  filter.session = byId('session').value;
  filter.faulty = byId('faulty').checked;
  limit = rowsAtATime;
  redraw();
}

function toggleFaults() {
  const form = byId('faults');
  form.hidden = !form.hidden;
  byId('faults-open').setAttribute('aria-expanded', String(!form.hidden));
  if (!form.hidden) byId('fail-status').focus();
}

async function sendFaults(members) {
  byId('faults-error').textContent = '';
  try {
    await post('/faults', members);
  } catch (error) {
    byId('faults-error').textContent = error.message;
  }
}

function applyFaults() {
  const text = (id) => byId(id).value.trim();
  const percent = text('fail-percent').replace('%', '');
  return sendFaults({
    fail: text('fail-status') ? `${text('fail-status')}:${percent || 100}%` : null,
    retryAfter: text('retry-after') || null,
    slow: text('slow') || null,
    refuse: byId('refuse').checked,
  });
}

function showFaults(faults) {
  const [status, percent] = (faults.fail || ':').split(':');
  byId('fail-status').value = status;
  byId('fail-percent').value = percent.replace('%', '');
  byId('retry-after').value = faults.retryAfter ?? '';
  byId('slow').value = faults.slow ?? '';
  byId('refuse').checked = faults.refuse;
  const words = [];
  if (faults.refuse) words.push('connections are closed without an answer');
  else if (faults.fail) words.push(`${percent} of tags are answered ${status}`);
  if (faults.fail && !faults.refuse && faults.retryAfter !== null) words.push(`with Retry-After ${faults.retryAfter}`);
  if (faults.slow) words.push(`answers are held back for ${faults.slow}`);
  byId('banner').hidden = words.length === 0;
  byId('banner').textContent = words.length === 0 ? '' : `Faults are on: ${words.join(', ')}.`;
}

// --- the connection

let connected = false;

function showConnection() {
  const state = byId('connection');
  state.textContent = !connected ? 'connection lost, trying again' : paused ? 'paused' : 'live';
  state.dataset.state = !connected ? 'lost' : paused ? 'paused' : 'live';
}

function connect() {
  source = new EventSource('/events');
  const on = (name, action) => source.addEventListener(name, (event) => action(JSON.parse(event.data)));
  on('tag', take);
  on('faults', showFaults);
  on('reset', forgetAll);
  on('dropped', ({ count, oldest }) => {
    byId('dropped').hidden = false;
    byId('dropped').textContent =
      `${count.toLocaleString()} older tags have made room for newer ones; the oldest kept is #${oldest}.`;
  });
  source.addEventListener('open', () => {
    connected = true;
    showConnection();
  });
  source.addEventListener('error', () => {
    connected = false;
    showConnection();
    // It comes back by itself, but for an answer that is no stream of events.
    if (source.readyState !== EventSource.CLOSED) return;
    setTimeout(() => {
      forgetAll();
      connect();
    }, 2000);
  });
}

// --- wiring

const keys = {
  j: () => move(1), ArrowDown: () => move(1), k: () => move(-1), ArrowUp: () => move(-1),
  Enter: () => selected !== null && open(selected),
  '/': () => byId('text').focus(),
  p: () => setPaused(!paused), x: clear, c: copyJson, r: copyReplay, f: toggleFaults,
  '?': () => byId('help').showModal(),
  Escape: close,
};

document.addEventListener('keydown', (event) => {
  const isTyping = event.target.matches('input:not([type=checkbox]), select, textarea');
  if (isTyping && event.key === 'Escape') event.target.blur();
  if (isTyping || event.ctrlKey || event.metaKey || event.altKey || byId('help').open) return;
  if (event.key === 'Enter' && event.target.closest('button, a, label')) return;
  if (!Object.hasOwn(keys, event.key)) return;
  event.preventDefault();
  keys[event.key]();
});

list.addEventListener('click', (event) => {
  const line = event.target.closest('li');
  if (line) open(Number(line.id.slice('tag-'.length)));
});
byId('filters').addEventListener('submit', (event) => event.preventDefault());
byId('filters').addEventListener('input', applyFilter);
byId('unfilter').addEventListener('click', () => {
  byId('filters').reset();
  applyFilter();
});
byId('pause').addEventListener('click', () => setPaused(!paused));
byId('waiting').addEventListener('click', () => setPaused(false));
byId('clear').addEventListener('click', clear);
byId('older').addEventListener('click', showOlder);
byId('faults-open').addEventListener('click', toggleFaults);
byId('faults').addEventListener('submit', (event) => {
  event.preventDefault();
  applyFaults();
});
byId('faults-off').addEventListener('click', () =>
  sendFaults({ fail: null, retryAfter: null, slow: null, refuse: false }));
byId('help-open').addEventListener('click', () => byId('help').showModal());

const settings = JSON.stringify({ PostMessageUrl: `${location.origin}/collect`, AppName: 'Shop', ClientId: '90000001' });
byId('settings').textContent = settings;
byId('copy-settings').addEventListener('click', () => copy(settings, 'Settings'));

// For a picture: whoever takes one does so once the page is loaded, which no event comes before.
function drawStill() {
  const request = new XMLHttpRequest();
  request.open('GET', '/tags', false);
  request.send();
  for (const line of request.responseText.split('\n').filter(Boolean)) arrived.push(JSON.parse(line));
  connected = true;
  showConnection();
  drawArrived();
}

redraw();
if (location.search === '?still') drawStill();
else connect();
