// Shows the terminal's pages as they come and sends back what the operator does. Pages say by attributes what their parts do:
//
//   data-result="N"       a button that returns N; a form that returns N with its fields as variables
//   data-key="1 Escape"   the keys that press this element
//   data-auto-result="N"  the page returns N by itself once it is to be seen
//   data-confirm="TEXT"   the button asks TEXT first, with data-yes="…" and data-no="…" as answers
//   data-focus            has the focus at first; else the entry of a menu that was chosen last, or the first one
//   data-announce         is read out when it changes; ="assertive" at once
//   data-for="F" data-value="V"   a fieldset that counts only while the form's field F has the value V
//   data-needs="F"        a button that can be pressed only while its form's field F has a value
//   data-scroll="start"   a button that leads to the beginning of the page's content; ="end" to its end
//   class="text_nowrap_tick"      goes to and fro where it is too long for its line
'use strict';

(() => {
  const kWaitSeconds = 25;
  const kRetryMs = [500, 1000, 2000, 3000];
  const kRoundTripMs = 15000;  // an answer that takes longer does not come any more
  const kBusyMs = 5000;  // a press without an answer for so long: the page says so, and one that stays may be pressed again
  const kSettleMs = 400;  // a page takes input only after it has been on screen for so long
  const kSamePressMs = 700;  // a press of the same spot or key within this is the same impatient one
  const kSameSpot = 48;  // pixels

  const main = document.getElementById('screen');
  const live = {polite: addStatus('unseen', 'polite'), assertive: addStatus('unseen', 'assertive')};
  const notice = addStatus('', 'polite');
  notice.id = 'notice';

  let screen = {id: 0, page: ''};
  let sending = false;  // a result is on its way, or the next page is
  let overtaken = null;  // a result for a page that stays, which met a later page
  let connected = true;
  let late = 0;  // the timer of the answer to a press; null once it is overdue
  const chosen = new Map();  // the entry of each menu that was chosen last
  let wake = () => {};

  function addStatus(className, politeness) {
    const element = document.createElement('p');
    element.className = className;
    element.setAttribute('aria-live', politeness);
    document.body.append(element);
    return element;
  }

  const pause = (ms) => new Promise((resolve) => setTimeout(resolve, ms));

  async function request(path, ms, options) {
    const abort = new AbortController();
    const timer = setTimeout(() => abort.abort(), ms);
    try {
      const response = await fetch(path, {...options, cache: 'no-store', signal: abort.signal});
      return {status: response.status, body: response.status === 200 ? await response.json() : null};
    } finally {
      clearTimeout(timer);
    }
  }

  // The pages, one after the other, for ever

  async function follow() {
    for (let failures = 0;;) {
      try {
        await takeNext(failures > 0);
        failures = 0;
      } catch (error) {
        showConnection(false);
        const retry = new Promise((resolve) => { wake = resolve; });
        await Promise.race([retry, pause(kRetryMs[Math.min(failures++, kRetryMs.length - 1)])]);
      }
    }
  }

  // After a failure the program may be another one: whatever page it shows is asked for, without waiting.
  async function takeNext(afresh) {
    const began = Date.now();
    const query = afresh ? 'after=0&wait=0' : `after=${screen.id}&wait=${kWaitSeconds}`;
    const {status, body} = await request(`/api/screen?${query}`, kWaitSeconds * 1000 + kRoundTripMs);
    if (status !== 200 && status !== 204) throw new Error(`answer ${status}`);
    showConnection(true);
    if (body && body.id !== screen.id) return show(body);
    if (afresh) return resume();
    if (Date.now() - began < 1000) await pause(1000);
  }

  // The same page is still there: a press that got lost may be repeated.
  function resume() {
    answered();
    setSending(false);
    returnByItself();
  }

  function showConnection(there) {
    connected = there;
    showNotice();
    main.inert = !there;
    if (!there) main.querySelector('dialog')?.remove();
    if (there && document.activeElement === document.body) focusFirst();
  }

  function showNotice() {
    const busy = late === null ? 'The terminal is busy. Please wait.' : '';
    const text = connected ? busy : 'No connection. Trying again.';
    if (notice.textContent !== text) notice.textContent = text;
  }

  // From a press on: without an answer within kBusyMs the page says so, until there is one.
  function expectAnswer() {
    answered();
    late = setTimeout(() => { late = null; showNotice(); }, kBusyMs);
  }

  function answered() {
    clearTimeout(late);
    late = 0;
    showNotice();
  }

  function show(next) {
    const again = next.page === screen.page;
    const goesOn = again && !next.sync && !screen.sync;  // the same page with another text
    screen = next;
    main.querySelector('dialog')?.remove();
    const page = new DOMParser().parseFromString(next.html, 'text/html');
    document.title = page.title;
    main.dataset.page = next.page;
    main.dataset.id = next.id;
    const before = announcement().text;
    if (again) {
      update(main, page.body);
      main.querySelectorAll('form').forEach((form) => form.reset());
    } else {
      main.replaceChildren(...page.body.childNodes);
      main.scrollTop = 0;
    }
    answered();
    setSending(false);
    furnish();
    if (!goesOn) settle();
    if (!again || !main.contains(document.activeElement)) focusFirst();
    if (!again || announcement().text !== before) announce();
    sendOvertaken();
    returnByItself();
  }

  // Makes the children of `old` those of `fresh` and leaves alone what is the same, with its focus and animations.
  function update(old, fresh) {
    const nodes = [...fresh.childNodes];
    nodes.forEach((node, i) => {
      const present = old.childNodes[i];
      if (!present) {
        old.append(node);
      } else if (present.nodeType !== node.nodeType || present.nodeName !== node.nodeName) {
        present.replaceWith(node);
      } else if (node.nodeType !== Node.ELEMENT_NODE) {
        if (present.data !== node.data) present.replaceWith(node);
      } else {
        updateAttributes(present, node);
        update(present, node);
      }
    });
    while (old.childNodes.length > nodes.length) old.lastChild.remove();
  }

  function updateAttributes(old, fresh) {
    for (const {name} of [...old.attributes]) if (!fresh.hasAttribute(name)) old.removeAttribute(name);
    for (const {name, value} of fresh.attributes) if (old.getAttribute(name) !== value) old.setAttribute(name, value);
  }

  function announcement() {
    const element = main.querySelector('[data-announce]');
    return {text: element ? element.innerText : '', politeness: element && element.dataset.announce || 'polite'};
  }

  function announce() {
    const {text, politeness} = announcement();
    for (const [name, element] of Object.entries(live)) element.textContent = name === politeness ? text : '';
  }

  function focusFirst() {
    const last = main.querySelector(`.menu button[data-result="${chosen.get(screen.page)}"]`);
    const element = main.querySelector('[data-focus]') || last || main.querySelector('.menu button, form input:checked') || main;
    element.focus({preventScroll: element === main || !element.closest('.content')});  // a page is read from its heading on
  }

  // What the style sheet cannot do

  function furnish() {
    main.querySelectorAll('form').forEach(chooseFieldsets);
    main.querySelectorAll('.text_nowrap_tick').forEach(tick);
    const content = scroller();
    const reachable = content && content.querySelector('button, input:not([type="hidden"])');
    if (content && !reachable && content.scrollHeight > content.clientHeight) content.tabIndex = 0;
  }

  // What scrolls: a page's content, or all of it on a display of few lines.
  function scroller() {
    return [main.querySelector('.content'), main].find((part) => part && getComputedStyle(part).overflowY === 'auto');
  }

  function chooseFieldsets(form) {
    const data = new FormData(form);  // once: a list may be long
    for (const fieldset of form.querySelectorAll('fieldset[data-for]')) {
      const counts = data.get(fieldset.dataset.for) === fieldset.dataset.value;
      fieldset.hidden = fieldset.disabled = !counts;
      if (counts) checkDefault(fieldset);
    }
    for (const button of main.querySelectorAll('button[data-needs]')) {
      if (button.form === form) button.disabled = !data.has(button.dataset.needs);
    }
  }

  // Fieldsets may offer choices of one name, of which the browser lets only one be checked.
  function checkDefault(fieldset) {
    const choices = [...fieldset.querySelectorAll('input[type="radio"]')];
    const byDefault = choices.find((input) => input.defaultChecked);
    if (byDefault && !choices.some((input) => input.checked)) byDefault.checked = true;
  }

  function tick(line) {
    const inner = line.querySelector(':scope > .tick');
    if (inner) inner.replaceWith(...inner.childNodes);
    line.normalize();
    const excess = line.scrollWidth - line.clientWidth;
    if (excess <= 0) return;
    const moving = document.createElement('span');
    moving.className = 'tick';
    moving.append(...line.childNodes);
    moving.style.setProperty('--tick-by', `${-excess}px`);
    moving.style.setProperty('--tick-time', `${2 + excess / 60}s`);
    line.append(moving);
  }

  // Results

  function setSending(on) {
    sending = on;
    main.setAttribute('aria-busy', String(on));
    if (!on) main.querySelectorAll('.pressed').forEach((element) => element.classList.remove('pressed'));
  }

  // Returns `result` from the page on screen. One press counts; the next page ends the sending. When somebody else was
  // quicker, the next page is on its way as well.
  async function send(result, vars, pressed) {
    if (sending || main.inert) return;
    const {id, page, sync} = screen;
    setSending(true);
    if (pressed) {
      pressed.classList.add('pressed');
      if (pressed.closest('.menu')) chosen.set(page, result);
      expectAnswer();
    }
    try {
      const {status} = await request(`/api/screen/${id}/result`, kRoundTripMs, {
        method: 'POST',
        headers: {'Content-Type': 'application/json'},
        body: JSON.stringify({result, vars}),
      });
      if (status !== 204 && status !== 409) throw new Error(`answer ${status}`);
      overtaken = status === 409 && !sync ? {page, result, vars} : null;
      if (screen.id !== id) return sendOvertaken();
      if (!sync && result !== -1) await pause(kBusyMs);
      else return;
    } catch (error) {
      wake();
    }
    if (screen.id === id) setSending(false);
  }

  // A page that stays may get another text while it is pressed; the press is meant for what goes on behind it.
  function sendOvertaken() {
    const press = overtaken;
    overtaken = null;
    if (press && press.page === screen.page && !screen.sync) send(press.result, press.vars);
  }

  // A page that nobody sees must return too, so painting is waited for only so long.
  async function returnByItself() {
    const element = main.querySelector('[data-auto-result]');
    if (!element) return;
    const {id} = screen;
    await painted();
    if (screen.id === id) send(Number(element.dataset.autoResult), {});
  }

  const painted = () => Promise.race([
    new Promise((resolve) => requestAnimationFrame(() => requestAnimationFrame(resolve))), pause(500)]);

  // What a press is meant for: the page that was whole on screen, and had been for a moment, when the finger or the key
  // came down. What is still held down, or taps on where it tapped before, is meant for the page before.

  let settledAt = Infinity;  // when the page takes input
  let pageOnScreen = 0;  // counts the pages, and the questions that they ask
  const held = new Set();  // fingers and keys that are down
  let press = null;  // the one that a click may come from
  let lastPress = {time: -Infinity};

  async function settle() {
    const page = ++pageOnScreen;
    settledAt = Infinity;
    delete main.dataset.settled;
    await painted();
    if (page !== pageOnScreen) return;
    settledAt = performance.now() + kSettleMs;
    main.dataset.settled = screen.id;
  }

  // Whether `one` goes on with what `other` began on a page before.
  function isSamePress(one, other) {
    if (other.page === pageOnScreen || one.time - other.time >= kSamePressMs) return false;
    return one.key === undefined ? Math.hypot(one.x - other.x, one.y - other.y) < kSameSpot : one.key === other.key;
  }

  function pressBegins(what, part) {
    const now = {...part, time: performance.now()};
    const same = isSamePress(now, lastPress);
    const meant = held.size === 0 && now.time >= settledAt && !same;
    held.add(what);
    press = {page: meant ? pageOnScreen : 0};
    lastPress = {...now, page: same ? lastPress.page : pageOnScreen};
  }

  addEventListener('pointerdown', (event) => pressBegins(event.pointerId, {x: event.clientX, y: event.clientY}), true);
  for (const type of ['pointerup', 'pointercancel']) addEventListener(type, (event) => held.delete(event.pointerId), true);
  addEventListener('keydown', (event) => { if (!event.repeat) pressBegins(event.code, {key: event.key}); }, true);
  addEventListener('keyup', (event) => held.delete(event.code), true);
  addEventListener('blur', () => held.clear());

  // A click that no finger, mouse or key began is a screen reader's.
  addEventListener('click', (event) => {
    const meant = press ? press.page === pageOnScreen : performance.now() >= settledAt;
    press = held.size > 0 ? press : null;
    if (meant) return;
    event.preventDefault();
    event.stopImmediatePropagation();
  }, true);

  main.addEventListener('click', (event) => {
    const button = event.target.closest('button');
    if (!button) return;
    if (button.dataset.scroll) scrollTo(button.dataset.scroll);
    else if (button.dataset.confirm) ask(button);
    else if (button.matches('dialog .no')) stay();
    else if (button.dataset.result !== undefined && button.form === null) send(Number(button.dataset.result), {}, button);
  });

  function stay() {
    main.querySelector('dialog').remove();
    focusFirst();
    settle();
  }

  // The question of a button with data-confirm. To stay is what has the focus, and what Escape does.
  function ask({dataset}) {
    const part = (name, text, data, className = '') => {
      const element = document.createElement(name);
      Object.assign(element, {textContent: text, className});
      Object.assign(element.dataset, data);
      return element;
    };
    const dialog = document.createElement('dialog');
    const text = part('p', dataset.confirm, {});
    text.id = 'question';
    dialog.setAttribute('aria-labelledby', text.id);
    const no = part('button', dataset.no, {key: 'Escape'}, 'no');
    dialog.append(text, part('button', dataset.yes, {result: dataset.result}, 'danger'), no);
    dialog.addEventListener('cancel', (event) => event.preventDefault());
    main.append(dialog);
    dialog.showModal();
    no.focus();
    settle();
  }

  main.addEventListener('submit', (event) => {
    event.preventDefault();
    const form = event.target;
    if (form.dataset.result === undefined) return;
    send(Number(form.dataset.result), Object.fromEntries(new FormData(form)), event.submitter);
  });

  main.addEventListener('change', (event) => {
    if (event.target.form) chooseFieldsets(event.target.form);
  });

  // Keys

  document.addEventListener('keydown', (event) => {
    if (event.ctrlKey || event.altKey || event.metaKey) return;
    if (event.repeat && [' ', 'Enter'].includes(event.key)) return event.preventDefault();
    if (event.target.matches('input:not([type="radio"]), select, textarea')) return;
    if (pressByKey(event.key) || moveInMenu(event.key) || scrollByKey(event.key)) event.preventDefault();
  });

  const inSight = () => main.querySelector('dialog') || main;

  function pressByKey(key) {
    const element = [...inSight().querySelectorAll('[data-key]')].find((one) => one.dataset.key.split(' ').includes(key));
    if (element) {
      element.click();
      return true;
    }
    if (key !== 'Enter' || document.activeElement.matches('button, input, summary')) return false;
    const accepts = inSight().querySelector('.primary');
    if (accepts) accepts.click();
    return Boolean(accepts);
  }

  function moveInMenu(key) {
    const step = {ArrowDown: 1, ArrowRight: 1, ArrowUp: -1, ArrowLeft: -1}[key];
    const entries = [...inSight().querySelectorAll('.menu button, dialog button')];
    if (!step || entries.length === 0) return false;
    const at = entries.indexOf(document.activeElement);
    const next = at < 0 ? 0 : (at + step + entries.length) % entries.length;
    entries[next].focus();
    return true;
  }

  function scrollTo(where) {
    const content = scroller();
    content.scrollTop = where === 'end' ? content.scrollHeight : 0;
  }

  function scrollByKey(key) {
    const content = scroller();
    const end = {Home: 'start', End: 'end'}[key];
    if (content && end && !document.activeElement.matches('input')) return scrollTo(end), true;
    const step = {ArrowDown: 60, ArrowUp: -60, PageDown: 0.9, PageUp: -0.9}[key];
    if (!content || !step || document.activeElement.matches('input')) return false;
    content.scrollBy({top: Math.abs(step) < 1 ? step * content.clientHeight : step});
    return true;
  }

  // The browser brings no more into sight than the choice itself.
  main.addEventListener('focusin', ({target}) => target.closest('label')?.scrollIntoView({block: 'nearest'}));

  addEventListener('resize', furnish);
  matchMedia('(prefers-reduced-motion: reduce)').addEventListener('change', furnish);
  addEventListener('online', () => wake());
  document.addEventListener('visibilitychange', () => wake());

  follow();
})();
