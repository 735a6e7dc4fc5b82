// Every page with variables as the program sets them, and the parts that must be there.

const error = (text) => `<span style='color:#f00'><b>Error:</b></span><br>${text}`;

export const installLog =
  "<span style='color:#0f0'><b>Download successful</b></span><br>" +
  'Package upload-0.zip: 48213 bytes, sha256 2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae<br>' +
  "<span style='color:#f00'>Warning: hello 1.0.0 is not signed<br></span>" +
  'Updated hello 0.9.0 -&gt; 1.0.0<br>' +
  "<span style='color:#f00'>Error: upload-1.zip: &quot;../evil&quot; leads outside of the application&apos;s folder<br></span>" +
  "<span style='color:#0a0'>List of installed applications:<br>  hello 1.0.0<br>  parking 2.4.1<br></span>";

export const environments = JSON.stringify([
  {name: 'prod', prod: true, certs: ['auth-ex']},
  {name: 'test', prod: false, certs: ['auth-ex', 'jx-basic']},
  {name: 'integration-europe-west', prod: false, certs: []},
]);

export const proxyVars = {cloud_env: 'test', cloud_env_list: environments, auth_ex_support: '1', cert: 'jx-basic'};

const button = (name) => ({role: 'button', name});

export const pages = [
  {page: 'mainmenu.html', vars: {show_settings: '0', show_cloudproxy: '1'},
    parts: [button('Exit'), button('1 Download'), button('2 Information'), button('3 Cloud proxy')]},
  {page: 'mainmenu.html', as: 'mainmenu-settings', vars: {show_settings: '1', show_cloudproxy: '0'},
    parts: [button('Exit'), button('1 Download'), button('2 Information'), button('3 Log level')]},
  {page: 'mainmenu.html', as: 'mainmenu-plain', vars: {show_settings: '0', show_cloudproxy: '0'},
    parts: [button('Exit'), button('1 Download'), button('2 Information')]},
  {page: 'download.html', vars: {},
    parts: [button('Back'), button('1 HTTP'), button('2 USB'), button('3 COM1'), button('4 COM2')]},
  {page: 'wait.html', async: true, vars: {text: 'Checking network.'}, texts: ['Checking network.']},
  {page: 'wait.html', as: 'wait-gateway', async: true, texts: ['Connect to gateway:', 'gateway-europe-west'],
    vars: {text: "Connect to gateway:<div class='text_nowrap_tick'>gateway-europe-west-1.terminals.payments.example.net</div>"}},
  {page: 'result.html', as: 'result-error', vars: {text: error('Cannot read settings.<br>Cloudproxy not running?')},
    parts: [button('OK')], texts: ['Error:', 'Cannot read settings.', 'Cloudproxy not running?']},
  {page: 'result.html', as: 'result-log', vars: {text: installLog}, parts: [button('OK')],
    texts: ['1 updated, 1 refused', 'Warning: hello 1.0.0 is not signed', 'Error: upload-1.zip: "../evil"', '  parking 2.4.1']},
  {page: 'result.html', as: 'result-gateway', parts: [button('OK')], texts: ['Cloud reachable', '204 (unknown)'],
    vars: {text: "<span style='color:#0f0'><b>Cloud reachable</b></span><br><b>Gateway:</b><div class='text_nowrap_tick'>" +
      "gateway-europe-west-1.terminals.payments.example.net</div><b>Status</b>:<div class='text_nowrap_tick'>204 (unknown)</div>"}},
  {page: 'info.html', vars: {uiVersion: '4.11.2', sponsorId: '000123', serialNo: '0123456789ABCDEF'},
    parts: [button('Back')], texts: ['4.11.2', '000123', '0123456789ABCDEF']},
  {page: 'settings.html', vars: {loglevel: '3'},
    parts: [button('Back'), button('Save'), {role: 'radio', name: '0'}, {role: 'radio', name: '8'}]},
  {page: 'cloudproxy.html', vars: {},
    parts: [button('Back'), button('1 Information'), button('2 Settings'), button('3 Check connection')]},
  {page: 'prx-info.html', vars: {version: '2.7.0', auth_ex_support: '1', device_type: 'prod'},
    parts: [button('Back')], texts: ['2.7.0', 'prod', 'supported']},
  {page: 'prx-settings.html', vars: proxyVars,
    parts: [button('Back'), button('Save'), {role: 'radio', name: 'prod Production'}, {role: 'radio', name: 'jx-basic'}]},
  {page: 'install-ddl.html', vars: {}, texts: ['Installing what was received.']},
  {page: 'download-http.html', async: true, parts: [button('Stop'), {role: 'img', name: 'QR code: http://192.168.1.20:6370'}],
    vars: {url_list: JSON.stringify([{if_name: 'eth0', url: 'http://192.168.1.20:6370'}])},
    texts: ['http://192.168.1.20:6370', 'eth0']},
  {page: 'download-http.html', as: 'download-http-two', async: true, parts: [button('Stop')],
    texts: ['2 addresses lead here', 'http://192.168.1.20:6370', 'eth0', 'wlan0'],
    vars: {url_list: JSON.stringify([{if_name: 'eth0', url: 'http://192.168.1.20:6370'},
      {if_name: 'wlan0', url: 'http://[2001:db8:85a3::8a2e:370:7334]:6370'}])}},
  {page: 'download-ddl.html', async: true, vars: {portname: 'USB'}, parts: [button('Abort')], texts: ['USB', 'Waiting for data.']},
  {page: 'download-ddl.html', as: 'download-ddl-message', async: true, vars: {portname: 'COM1', message: 'Loading parking 2.4.1 (3 of 7)'},
    parts: [button('Abort')], texts: ['COM1', 'Loading parking 2.4.1 (3 of 7)']},
  // What stands in for a page whose file is not there.
  {page: 'missing.html', async: true, vars: {}, parts: [button('Back'), button('Abort')],
    texts: ['Page missing', 'The page missing.html cannot be read:', 'No such file or directory.']},
].map((entry) => ({as: entry.page.replace('.html', ''), parts: [], texts: [], ...entry}));
