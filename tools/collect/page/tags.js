// What a tag looks like. Values of tags are text, and become text nodes: nothing here writes markup.

const colours = 12;
const longestValue = 4000;
const mostKeys = 400;

/** An element with a class, and with children: elements, or strings as text. */
export function element(name, className, ...children) {
  const made = document.createElement(name);
  if (className) made.className = className;
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

function colourOf(id) {
  let hash = 2166136261;
  for (const character of id) hash = Math.imul(hash ^ character.codePointAt(0), 16777619);
  // The last bits of this hash are poor ones.
  return `c${((hash >>> 0) >>> 9) % colours}`;
}

function chip(kind, id, whole) {
  if (!id) return element('span', 'number', whole ? 'none' : '');
  const shown = whole || id.length <= 10 ? id : `…${id.slice(-6)}`;
  const made = element('span', `chip ${kind} ${colourOf(id)}`, shown);
  made.title = `${kind} ${id}`;
  return made;
}

function visitorChip(tag, whole) {
  const made = chip('visitor', tag.visitor, whole);
  if (tag.anonymous) made.textContent = whole ? `${tag.visitor} (anonymous)` : 'anonymous';
  return made;
}

export function timeText(iso) {
  const time = new Date(iso);
  const two = (number) => String(number).padStart(2, '0');
  return `${two(time.getHours())}:${two(time.getMinutes())}:${two(time.getSeconds())}` +
    `.${String(time.getMilliseconds()).padStart(3, '0')}`;
}

function cut(text, most) {
  if (text.length <= most) return text;
  return `${text.slice(0, most)}… ${(text.length - most).toLocaleString()} more characters`;
}

function valueText(value) {
  return typeof value === 'string' ? value : JSON.stringify(value);
}

const plainKeys = new Set(['tid', 'at', 'ci', 'vn1', 'vn2', 'st', 'ec', 'ul', 'cjen', 'cjuid', 'cjsid',
  'cjvf', 'pc', 'pd', 'sw', 'sh', 'pflg', 'ti', 'ha1']);

// A tag may have a key that every object has by birth.
function meaningOf(tag, key) {
  return Object.hasOwn(tag.meanings, key) ? tag.meanings[key] : '';
}

/** The event's own keys that say something. */
function summary(tag) {
  if (tag.body === null) return cut(tag.raw || '', 120);
  const parts = [];
  for (const [key, value] of Object.entries(tag.body)) {
    if (plainKeys.has(key) || value === '') continue;
    parts.push(`${meaningOf(tag, key) || key} ${cut(valueText(value), 60)}`);
    if (parts.length === 5) break;
  }
  return parts.join('  ·  ');
}

function badges(tag) {
  const made = [];
  if (tag.technicalProperties) made.push(element('span', 'badge info', 'technical properties'));
  if (tag.repeatOf !== null) made.push(element('span', 'badge', `again, first #${tag.repeatOf}`));
  if (tag.fault) made.push(element('span', 'badge fault', tag.fault));
  if (tag.problems.length > 0) {
    const words = tag.problems.length === 1 ? '1 problem' : `${tag.problems.length} problems`;
    made.push(element('span', 'badge bad', words));
  }
  return made;
}

export function nameOf(tag) {
  if (tag.event) return tag.event;
  return tag.body === null ? 'malformed' : 'unknown event';
}

/** A line of the list. */
export function row(tag) {
  const time = element('time', '', timeText(tag.received));
  time.dateTime = tag.received;
  const line = element('li', tag.problems.length > 0 ? 'faulty' : '',
    element('div', 'when', time, element('span', 'number', `#${tag.sequence}`)),
    element('div', 'what', element('strong', '', nameOf(tag)), ...badges(tag),
      element('div', 'values', summary(tag))),
    element('div', 'who', chip('session', tag.session), visitorChip(tag)));
  line.id = `tag-${tag.sequence}`;
  line.setAttribute('role', 'option');
  line.setAttribute('aria-selected', 'false');
  return line;
}

function table(caption, rows) {
  const body = element('tbody', '', ...rows.slice(0, mostKeys));
  const made = element('table', '', element('caption', '', caption), body);
  if (rows.length > mostKeys) {
    made.append(element('tfoot', '', element('tr', '',
      element('td', '', `and ${rows.length - mostKeys} more`))));
  }
  return made;
}

function keyRow(tag, key, value, faulty) {
  const shown = value === '' ? element('span', 'blank', 'empty') : cut(valueText(value), longestValue);
  return element('tr', faulty.has(key) ? 'faulty' : '',
    element('th', '', cut(key, 100)), element('td', 'meaning', meaningOf(tag, key) || 'unknown'),
    element('td', 'value', shown));
}

function keys(tag) {
  const faulty = new Set(tag.problems.map((problem) => problem.key));
  const entries = Object.entries(tag.body);
  const isOwn = ([key]) => !plainKeys.has(key) || !meaningOf(tag, key) || faulty.has(key);
  const rows = (list) => list.map(([key, value]) => keyRow(tag, key, value, faulty));
  return [table('Event', rows(entries.filter(isOwn))),
    table('In every tag', rows(entries.filter((entry) => !isOwn(entry))))];
}

function facts(tag) {
  const pairs = [['Received', new Date(tag.received).toLocaleString()], ['Session', chip('session', tag.session, true)],
    ['Visitor', visitorChip(tag, true)], ['Client', tag.client || 'none'], ['Path', tag.path],
    ['Answer', tag.answer === null ? 'none' : String(tag.answer)]];
  if (tag.fault) pairs.push(['Fault', tag.fault]);
  if (tag.repeatOf !== null) pairs.push(['Posted before', `as #${tag.repeatOf}`]);
  return element('dl', 'facts',
    ...pairs.map(([name, value]) => element('div', name === 'Visitor' || name === 'Received' ? 'wide' : '', element('dt', '', name), element('dd', '', value))));
}

/** What the panel shows of one tag; `act` is called with the name of what a button asks for. */
export function detail(tag, act) {
  const button = (name, text, label) => {
    const made = element('button', name === 'close' ? 'close' : '', text);
    made.type = 'button';
    made.dataset.act = name;
    if (label) made.setAttribute('aria-label', label);
    made.addEventListener('click', () => act(name));
    return made;
  };
  const problems = element('ul', 'problems',
    ...tag.problems.map((problem) => element('li', '', cut(problem.text, 500))));
  return [
    element('div', 'title', element('h2', '', nameOf(tag)), element('span', 'number', `#${tag.sequence}`),
      button('close', '×', 'Close')),
    element('div', 'title badges', ...badges(tag)),
    tag.problems.length > 0 ? problems : null,
    element('div', 'actions', button('json', 'Copy JSON'),
      tag.replay ? button('replay', 'Copy replay line') : null),
    facts(tag),
    ...(tag.body === null ? [element('pre', 'raw', tag.raw || 'nothing that could be kept')] : keys(tag)),
    table('Headers', tag.headers.map(([name, value]) =>
      element('tr', '', element('th', '', cut(name, 100)), element('td', 'value', cut(value, longestValue))))),
  ].filter((part) => part !== null);
}

/** What the text filter looks into, in small letters. */
export function searchText(tag) {
  const meanings = Object.values(tag.meanings).join(' ');
  const problems = tag.problems.map((problem) => problem.text).join(' ');
  return `${tag.event} ${tag.body === null ? tag.raw : JSON.stringify(tag.body)} ${meanings} ${problems}`.toLowerCase();
}
